// MonitorOnSlave: the slave watches the master. While the master's host answers ping it judges
// the master's row as the master's own database holds it, beside the copy in its own database,
// and writes the verdict to both; while it does not (or its database cannot be used), it judges
// the master's and the members' rows from its own database and writes there only. Take-overs it
// held while it looked cut off are settled against the master's verdict once the master answers.
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "membership/heartbeat.h"
#include "membership/monitor.h"
#include "membership/monitor_decision.h"
#include "membership/nodedown.h"
#include "membership/watch.h"
#include "net/ping.h"
#include "store/cluster_query.h"
#include "store/cluster_writes.h"
#include "store/pools.h"

namespace qor {

namespace {

struct Pass {
  NodeState& n;
  DetectorMemory& d;
  int64_t now = 0, nowMs = 0;
  int idOnSlave = 0;        // the id of the master's row in the slave's database
  bool othersRead = false;  // ClustsOnSlave holds every other server's row of this database
  PassMarks marks{};
};

void TraceAge(int step, const Pass& p, const ClustRecord& row, const RowSeen& seen) {
  Trace("_xmonitoronslave(%d): delta=%ld ldate1=%ld ldate2=%ld\n", step,
        static_cast<long>(seen.silentMs / 1000), static_cast<long>(p.now),
        static_cast<long>(row.updated_at));
}

void WriteSlaveStatus(const ClustRecord& row, int id, int status, const Pass& p) {
  SetStatusClusterSql(Db::kSlave, id, status);
  p.d.seen.Wrote(Db::kSlave, row.hostname.c_str(), p.nowMs, status);
}

// The take-overs this slave held while the master was silent, now that the master's database
// answers: the master judges the members from there. Those it took over, those that write again
// and those without a row are settled; the others stay held until the master's verdict shows.
void SettleHeld(const Pass& p) {
  TakeoverQueue& queue = p.d.takeovers;
  if (queue.held().empty()) return;
  ActInfo info;
  if (GetClusterSql(cnf.clustmaster.c_str(), "-all", &info, p.n.ClustsTemp, Db::kMaster) != kDbOk ||
      info.side != Index(Db::kMaster)) {
    return;
  }
  std::vector<std::string> settled;
  for (const TakeoverRun& h : queue.held()) {
    const ClustRecord* row = nullptr;
    for (int i = 0; i < info.count && row == nullptr; ++i) {
      if (h.hostname == p.n.ClustsTemp[i]->hostname.c_str()) row = p.n.ClustsTemp[i];
    }
    const char* why = nullptr;
    if (row == nullptr) {
      why = "has no row any more";
    } else if (row->status == kStatusInactive || row->status == kStatusOld) {
      why = "was taken over by the master";
    } else if (p.d.seen.Writing(h.hostname.c_str(), p.nowMs)) {
      why = "writes again";
    }
    if (why == nullptr) continue;
    LogNotice("monitoronslave(9) %s(%s) %s, its held take-over dropped", h.hostname.c_str(),
              h.ipaddress.c_str(), why);
    settled.emplace_back(h.hostname.c_str());
  }
  for (const std::string& host : settled) queue.Drop(host.c_str());
}

int WatchFromSlave(Pass& p, bool masterAnswers);

int WatchAnsweringMaster(Pass& p) {
  int read = GetClusterSql(cnf.clustmaster.c_str(), "-master_slave", &p.n.mactinfo,
                           p.n.ClustsOnMaster, Db::kMaster);
  Trace("_xmonitoronslave(2): mactinfo.count=%d\n", p.n.mactinfo.count);
  // The master's host answers but its database cannot be used by this server (stopped, hung,
  // refusing its heartbeat): the master cannot judge anyone from there either, so the slave
  // keeps the watch from its own database, as when the host is silent.
  bool readOk = read == kDbOk && p.n.mactinfo.side == Index(Db::kMaster);
  if (!ObserveDb(p.d, p.n.HeartbeatWrites, Db::kMaster, readOk, p.n.ClustsOnMaster,
                 p.n.mactinfo.count, p.nowMs, false, "monitoronslave(8)")) {
    return WatchFromSlave(p, true);
  }
  SettleHeld(p);
  if (p.n.mactinfo.count != 2) return kMonitorDone;
  ClustRecord& M = *p.n.ClustsOnMaster[0];
  const ClustRecord& S = *p.n.ClustsOnMaster[1];
  // Ordered by role text: anything but the master's and the slave's row is no pair to judge.
  if (!(M.role == "master" && S.role == "slave")) return kMonitorDone;
  if (M.status != kStatusActive && M.status != kStatusInactive) return kMonitorDone;
  RowSeen seen =
      SeenOf(p.d, M, Db::kMaster, p.d.takeovers.Holds(M.hostname.c_str()), p.nowMs, p.marks);
  TraceAge(3, p, M, seen);
  RowVerdict v =
      Judge(seen, PassGuard{}, true, [&](bool s) { return DecideMasterAnswering(M, S, s); });
  ReportOneDb(p.d, "monitoronslave(8)", M, v.takeover == Takeover::kOneDb);
  SettleMaintenance(p.d, "monitoronslave(10)", M, seen, p.marks, p.nowMs);
  if (!v.logDetected) return kMonitorDone;
  LogDetected(p.d, 2, M, p.now);
  if (v.decided.old) {
    LogError("DB_OLD_STAT_5: %s(%s) is now DB_OLD_STAT(%s:%ld < %s:%ld)", M.hostname.c_str(),
             M.ipaddress.c_str(), M.hostname.c_str(), static_cast<long>(M.last_writemill),
             S.hostname.c_str(), static_cast<long>(S.last_writemill));
    LogNotice("monitoronslave(4) lastwritemill -> %ld %ld", static_cast<long>(M.last_writemill),
              static_cast<long>(S.last_writemill));
    M.last_writemill = 0;
  }
  SetStatusClusterSql(Db::kMaster, M.id, v.decided.status);
  p.d.seen.Wrote(Db::kMaster, M.hostname.c_str(), p.nowMs, v.decided.status);
  WriteSlaveStatus(M, p.idOnSlave, v.decided.status, p);
  if (v.takeover == Takeover::kRun) Qordown(p.d.takeovers, M);
  if (v.takeover == Takeover::kMaintenance) {
    SkipForMaintenance(p.d, "monitoronslave(10)", M, p.marks, p.nowMs);
  }
  return kMonitorDone;
}

// kind: 3 the master's row, 4 a member's. Returns whether the take-over was newly held.
bool JudgeAlone(ClustRecord& R, int kind, const PassGuard& guard, Pass& p) {
  TakeoverQueue& queue = p.d.takeovers;
  const char* host = R.hostname.c_str();
  RowSeen seen = SeenOf(p.d, R, Db::kSlave, queue.Holds(host), p.nowMs, p.marks);
  TraceAge(kind == 3 ? 6 : 7, p, R, seen);
  RowVerdict v = Judge(seen, guard, guard.writing > 0, [&](bool s) {
    return kind == 3 ? DecideMasterSilent(R, s, p.d.MasterLastWriteMill, p.d.SlaveLastWriteMill)
                     : DecideMemberFromSlave(R, s);
  });
  if (v.logDetected) LogDetected(p.d, kind, R, p.now);
  if (v.decided.old) {
    LogError("DB_OLD_STAT_6: %s(%s) is now DB_OLD_STAT(%s:%ld < %s:%ld)", host, R.ipaddress.c_str(),
             cnf.clustmaster.c_str(), static_cast<long>(p.d.MasterLastWriteMill),
             cnf.clustslave.c_str(), static_cast<long>(p.d.SlaveLastWriteMill));
  }
  if (v.write) WriteSlaveStatus(R, R.id, v.decided.status, p);
  if (v.takeover == Takeover::kRun) Qordown(p.d.takeovers, R);
  if (v.takeover == Takeover::kMaintenance)
    SkipForMaintenance(p.d, "monitoronslave(10)", R, p.marks, p.nowMs);
  SettleMaintenance(p.d, "monitoronslave(10)", R, seen, p.marks, p.nowMs);
  if (v.takeover == Takeover::kHold) return queue.Hold(host, R.ipaddress.c_str(), p.nowMs);
  if (seen.held && v.takeover == Takeover::kNone && p.d.seen.Writing(host, p.nowMs)) {
    LogNotice("monitoronslave(9) %s(%s) writes again, its held take-over dropped", host,
              R.ipaddress.c_str());
    queue.Drop(host);
  }
  return false;
}

// The master's host is silent, or its database: the slave keeps the watch from its own database
// alone. masterAnswers: the master's host answered ping in this pass.
int WatchFromSlave(Pass& p, bool masterAnswers) {
  ActInfo own;
  GetClusterSql(cnf.clustslave.c_str(), "-slave", &own, p.n.ClustsTemp, Db::kSlave);
  p.d.SlaveLastWriteMill = own.count >= 1 ? p.n.ClustsTemp[0]->last_writemill : 0;
  Trace("_xmonitoronslave(5): sactinfo.count=%d\n", p.n.sactinfo.count);
  if (!p.othersRead) return kMonitorDone;
  std::vector<GuardRow> rows;
  for (int i = 0; i < p.n.sactinfo.count; ++i)
    rows.push_back(GuardRowOf(p.d, *p.n.ClustsOnSlave[i], Db::kSlave, p.nowMs));
  PassGuard guard = GuardOf(rows, [&] { return masterAnswers; });
  int held = 0;
  for (int i = 0; i < p.n.sactinfo.count; ++i) {
    ClustRecord& R = *p.n.ClustsOnSlave[i];
    bool master = R.role == "master";
    if (master) p.d.MasterLastWriteMill = R.last_writemill;
    // The master's row is judged at 100 or 200 (rewritten), the members' at 100 only.
    bool watched = R.status == kStatusActive || (master && R.status == kStatusInactive);
    if (watched) {
      held += JudgeAlone(R, master ? 3 : 4, guard, p) ? 1 : 0;
    } else {
      const char* host = R.hostname.c_str();
      RowSeen seen = SeenOf(p.d, R, Db::kSlave, p.d.takeovers.Holds(host), p.nowMs, p.marks);
      SettleMaintenance(p.d, "monitoronslave(10)", R, seen, p.marks, p.nowMs);
    }
  }
  if (held > 0 && guard.cutOff) {
    LogError(
        "monitoronslave(9) all %d other servers are silent and %s does not answer: this server is "
        "probably the one cut off, %d take-overs held",
        guard.others, cnf.clustmaster.c_str(), held);
  } else if (held > 0) {
    LogError(
        "monitoronslave(9) %d of %d servers went silent at once and the database on %s cannot "
        "confirm it: %d take-overs held, for up to %ld s while others write",
        guard.silent, guard.others, cnf.clustmaster.c_str(), held,
        static_cast<long>(kBrakeReleaseMs / 1000));
  }
  return kMonitorDone;
}

}  // namespace

int MonitorOnSlave(NodeState& n, DetectorMemory& d, const Clocks& now) {
  char date[32];
  Pass p{.n = n, .d = d, .now = now.wallMill / 1000, .nowMs = now.monoMs};
  FormatQorDate(date, sizeof date, static_cast<time_t>(p.now), kDateTime);
  Trace("_xmonitoronslave(1): starting at %s (%ld)\n", date, static_cast<long>(p.now));
  if (ClustRole != kRoleSlave) return kMonitorNotMine;
  int read = GetClusterSql(cnf.clustslave.c_str(), "-master", &p.n.sactinfo, p.n.ClustsOnSlave,
                           Db::kSlave);
  // The master's row in this database is watched beside its row in the master's: a master that
  // still writes here is not taken over for a database of its own that stopped taking writes.
  ObserveDb(p.d, p.n.HeartbeatWrites, Db::kSlave,
            read == kDbOk && p.n.sactinfo.side == Index(Db::kSlave), p.n.ClustsOnSlave,
            p.n.sactinfo.count, p.nowMs, false, "monitoronslave(8)");
  if (p.n.sactinfo.count != 1) return kMonitorDone;
  // A master that the slave's database already holds as old is not watched, nor are the members.
  if (p.n.ClustsOnSlave[0]->status == kStatusOld) return kMonitorDone;
  p.idOnSlave = p.n.ClustsOnSlave[0]->id;
  // Every other row of this database is watched at every pass, also while the master answers and
  // judges the members: a slave cut off later knows who was writing before, and judges nobody by
  // a gap it did not watch.
  read = GetClusterSql(cnf.clustslave.c_str(), "-not_slave", &p.n.sactinfo, p.n.ClustsOnSlave,
                       Db::kSlave);
  p.othersRead = ObserveDb(
      p.d, p.n.HeartbeatWrites, Db::kSlave, read == kDbOk && p.n.sactinfo.side == Index(Db::kSlave),
      p.n.ClustsOnSlave, p.n.sactinfo.count, p.nowMs, true, "monitoronslave(8)");
  p.d.marks = p.marks.All();
  if (Ping(cnf.clustmaster.c_str()) == 0) return WatchAnsweringMaster(p);
  return WatchFromSlave(p, false);
}

}  // namespace qor
