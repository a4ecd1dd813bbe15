// MonitorCluster and MonitorOnMaster: the master reads every row of its own database and of the
// slave's, judges each server by what it observed of its row in both (membership/
// monitor_decision.h), writes the verdict to both databases under the id the row has in each,
// runs, holds or settles the take-overs, and marks template copies that are behind its own tree.
#include <cstdio>
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

int MonitorCluster(NodeState& n, DetectorMemory& d, const Clocks& now) {
  if (ClustRole == kRoleMaster) return MonitorOnMaster(n, d, now);
  if (ClustRole == kRoleSlave) return MonitorOnSlave(n, d, now);
  return kMonitorNotMine;
}

namespace {

// The slave's answer to ping, asked at most once per pass: with the slave's server down every
// ask costs three seconds, and a pass may need it for every row.
class SlaveReach {
 public:
  bool answers() {
    if (reply_ == Reply::kNotAsked) {
      reply_ = Ping(cnf.clustslave.c_str()) == 0 ? Reply::kAnswered : Reply::kSilent;
    }
    return reply_ == Reply::kAnswered;
  }

 private:
  enum class Reply { kNotAsked, kAnswered, kSilent };
  Reply reply_ = Reply::kNotAsked;
};

struct Pass {
  NodeState& n;
  DetectorMemory& d;
  int64_t now, nowMs;
  PassGuard guard{};
  bool slaveReadable = false;
  int held = 0;  // take-overs newly held in this pass
  PassMarks marks{};
};

// The status, to the slave's database by the id the same host has there: each database numbers
// its rows itself.
void WriteSlaveCopy(Pass& p, const ClustRecord& row, int status) {
  ActInfo info;
  GetClusterSql(cnf.clustslave.c_str(), row.hostname.c_str(), &info, p.n.ClustsTemp, Db::kSlave);
  if (info.count != 1 || info.side != Index(Db::kSlave)) return;
  SetStatusClusterSql(Db::kSlave, p.n.ClustsTemp[0]->id, status);
  p.d.seen.Wrote(Db::kSlave, row.hostname.c_str(), p.nowMs, status);
}

void WriteStatus(Pass& p, const ClustRecord& row, int status) {
  SetStatusClusterSql(Db::kMaster, row.id, status);
  p.d.seen.Wrote(Db::kMaster, row.hostname.c_str(), p.nowMs, status);
  if (p.slaveReadable) WriteSlaveCopy(p, row, status);
}

void CheckRow(ClustRecord& row, Pass& p) {
  TakeoverQueue& queue = p.d.takeovers;
  const char* host = row.hostname.c_str();
  DetectorMemory& d = p.d;
  RowSeen seen = SeenOf(d, row, Db::kMaster, queue.Holds(host), p.nowMs, p.marks);
  Trace("_xmonitoronmaster(9): delta=%ld ldate1=%ld ldate2=%ld\n",
        static_cast<long>(seen.silentMs / 1000), static_cast<long>(p.now),
        static_cast<long>(row.updated_at));
  RowVerdict v = Judge(seen, p.guard, p.guard.writing > 0,
                       [&](bool s) { return DecideOnMaster(row, s, d.MasterLastWriteMill); });
  ReportOneDb(d, "monitoronmaster(5)", row, v.takeover == Takeover::kOneDb);
  if (v.logDetected) LogDetected(d, 1, row, p.now);
  if (v.decided.old) {
    LogNotice("monitoronmaster(1) lastwritemill -> %ld %ld",
              static_cast<long>(d.MasterLastWriteMill), static_cast<long>(row.last_writemill));
    LogError("DB_OLD_STAT_4: %s(%s) is now DB_OLD_STAT(%s:%ld > %s:%ld)", host,
             row.ipaddress.c_str(), cnf.clustmaster.c_str(),
             static_cast<long>(d.MasterLastWriteMill), host, static_cast<long>(row.last_writemill));
    row.last_writemill = 0;
  }
  if (v.write) WriteStatus(p, row, v.decided.status);
  switch (v.takeover) {
    case Takeover::kRun:
      // The take-over sees the row as read, but with the last write cleared for a slave made old.
      Qordown(queue, row);
      break;
    case Takeover::kHold:
      p.held += queue.Hold(host, row.ipaddress.c_str(), p.nowMs) ? 1 : 0;
      break;
    case Takeover::kPeerDone:
      LogNotice("monitoronmaster(3) %s(%s) was taken over by the slave already", host,
                row.ipaddress.c_str());
      queue.Drop(host);
      break;
    case Takeover::kMaintenance:
      SkipForMaintenance(d, "monitoronmaster(10)", row, p.marks, p.nowMs);
      break;
    case Takeover::kNone:
    case Takeover::kOneDb:
      if (seen.held && d.seen.Writing(host, p.nowMs)) {
        LogNotice("monitoronmaster(4) %s(%s) writes again, its held take-over dropped", host,
                  row.ipaddress.c_str());
        queue.Drop(host);
      }
      break;
  }
  SettleMaintenance(d, "monitoronmaster(10)", row, seen, p.marks, p.nowMs);
}

// A status the slave's database missed (its server did not answer when the verdict was
// written) is copied there at the first pass that can, while the server stays silent there.
void HealSlaveCopy(const ClustRecord& row, Pass& p) {
  if (!p.slaveReadable || (row.status != kStatusInactive && row.status != kStatusOld)) return;
  const RowWatch* copy = p.d.seen.Find(Db::kSlave, row.hostname.c_str());
  if (copy == nullptr || copy->status != kStatusActive || copy->silentMs <= kSilentMs) return;
  LogNotice("monitoronmaster(7) %s(%s) status %d copied to the database on %s",
            row.hostname.c_str(), row.ipaddress.c_str(), row.status, cnf.clustslave.c_str());
  WriteSlaveCopy(p, row, row.status);
}

// Each database's copy is marked by what that copy says, so a mark the slave's database missed
// is made there at the first pass that can read it.
void MarkTemplate(const ClustRecord& row, Pass& p) {
  const char* host = row.hostname.c_str();
  if (TemplateMarkDue(row, p.d.MasterTplUpdateMill)) {
    UpdateTplsyncSql(Db::kMaster, host, row.tpl_syncmill, kTplOld);
    p.d.seen.Wrote(Db::kMaster, host, p.nowMs, 0);
  }
  if (!p.slaveReadable) return;
  for (int i = 0; i < p.n.sactinfo.count; ++i) {
    const ClustRecord& copy = *p.n.ClustsOnSlave[i];
    if (copy.hostname != host || !TemplateMarkDue(copy, p.d.MasterTplUpdateMill)) continue;
    UpdateTplsyncSql(Db::kSlave, host, copy.tpl_syncmill, kTplOld);
    p.d.seen.Wrote(Db::kSlave, host, p.nowMs, 0);
  }
}

// Held take-overs whose rows are gone (removed by hand, swept) have nobody left to take over.
void DropVanished(TakeoverQueue& queue, const ActInfo& info, ClustRecord* const* rows) {
  std::vector<std::string> gone;
  for (const TakeoverRun& h : queue.held()) {
    bool found = false;
    for (int i = 0; i < info.count && !found; ++i) found = h.hostname == rows[i]->hostname.c_str();
    if (!found) gone.emplace_back(h.hostname.c_str());
  }
  for (const std::string& host : gone) {
    LogNotice("monitoronmaster(4) %s has no row any more, its held take-over dropped",
              host.c_str());
    queue.Drop(host.c_str());
  }
}

}  // namespace

int MonitorOnMaster(NodeState& n, DetectorMemory& d, const Clocks& now) {
  char date[32];
  Pass p{.n = n, .d = d, .now = now.wallMill / 1000, .nowMs = now.monoMs};
  FormatQorDate(date, sizeof date, static_cast<time_t>(p.now), kDateTime);
  Trace("_xmonitoronmaster(1): starting at %s (%ld)\n", date, static_cast<long>(p.now));
  if (ClustRole != kRoleMaster) return kMonitorNotMine;
  int read =
      GetClusterSql(cnf.clustmaster.c_str(), "-all", &n.mactinfo, n.ClustsOnMaster, Db::kMaster);
  // The master judges from its own database only: while it does not answer, the read falls back
  // to the slave's, from which the slave keeps the watch; judged from both sides, a server that
  // died then would be taken over twice.
  bool own = read == kDbOk && n.mactinfo.side == Index(Db::kMaster);
  if (!ObserveDb(d, n.HeartbeatWrites, Db::kMaster, own, n.ClustsOnMaster, n.mactinfo.count,
                 p.nowMs, true, "monitoronmaster(6)")) {
    return kMonitorDone;
  }
  // The slave's copy of every row: a server silent here that still writes there lost its way to
  // this database only, and a member the slave took over meanwhile is not taken over again.
  bool slaveRead = spool != nullptr &&
                   GetClusterSql(cnf.clustslave.c_str(), "-all", &n.sactinfo, n.ClustsOnSlave,
                                 Db::kSlave) == kDbOk &&
                   n.sactinfo.side == Index(Db::kSlave);
  p.slaveReadable = ObserveDb(d, n.HeartbeatWrites, Db::kSlave, slaveRead, n.ClustsOnSlave,
                              n.sactinfo.count, p.nowMs, true, "monitoronmaster(6)");
  std::vector<GuardRow> guardRows;
  for (int i = 0; i < n.mactinfo.count; ++i) {
    const ClustRecord& row = *n.ClustsOnMaster[i];
    // Master rows come first by role_id; each one read sets the reference for the rows after it.
    if (row.role_id == kRoleIdMaster) {
      d.MasterLastWriteMill = row.last_writemill;
      d.MasterTplUpdateMill = row.tpl_updatemill;
    } else {
      guardRows.push_back(GuardRowOf(d, row, Db::kMaster, p.nowMs));
    }
  }
  SlaveReach slave;
  p.guard = GuardOf(guardRows, [&] { return slave.answers(); });
  d.marks = p.marks.All();
  for (int i = 0; i < n.mactinfo.count; ++i) {
    ClustRecord& row = *n.ClustsOnMaster[i];
    if (row.role_id == kRoleIdMaster) continue;
    CheckRow(row, p);
    HealSlaveCopy(row, p);
    MarkTemplate(row, p);
  }
  DropVanished(d.takeovers, n.mactinfo, n.ClustsOnMaster);
  if (p.held > 0 && p.guard.cutOff) {
    LogError(
        "monitoronmaster(4) all %d other servers are silent and %s does not answer: this server "
        "is probably the one cut off, %d take-overs held",
        p.guard.others, cnf.clustslave.c_str(), p.held);
  } else if (p.held > 0) {
    LogError(
        "monitoronmaster(4) %d of %d servers went silent at once and the database on %s cannot "
        "confirm it: %d take-overs held, for up to %ld s while others write",
        p.guard.silent, p.guard.others, cnf.clustslave.c_str(), p.held,
        static_cast<long>(kBrakeReleaseMs / 1000));
  }
  return kMonitorDone;
}

}  // namespace qor
