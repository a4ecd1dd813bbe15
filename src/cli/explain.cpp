#include "cli/explain.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/paths.h"
#include "cli/json_listing.h"
#include "config/qorconf.h"
#include "membership/heartbeat.h"
#include "membership/monitor.h"
#include "membership/monitor_decision.h"
#include "membership/takeover_queue.h"
#include "membership/watch.h"
#include "net/ping.h"
#include "store/cluster_query.h"
#include "store/pools.h"

namespace qor {

namespace {

struct Explained {
  const ClustRecord* row;
  RowSeen seen;
  std::string action;
};

// What the verdict means, in the operator's words.
std::string Describe(const RowVerdict& v, const RowSeen& seen, const PassGuard& guard,
                     const MaintenanceMark* mark, const char* peer) {
  std::string status = std::to_string(v.decided.status);
  switch (v.takeover) {
    case Takeover::kRun:
      return "mark " + status + " and take over";
    case Takeover::kHold:
      return guard.cutOff
                 ? "hold the take-over: cut-off guard (nobody writing, " + std::string(peer) +
                       " silent)"
                 : "hold the take-over: mass-silence brake (" + std::to_string(guard.silent) +
                       " of " + std::to_string(guard.others) + " silent, not confirmed)";
    case Takeover::kPeerDone:
      return "mark " + status + ": already taken over by " + peer;
    case Takeover::kOneDb:
      return "nothing: still writes into the other database";
    case Takeover::kMaintenance:
      return "mark " + status + ", no take-over: maintenance" +
             (mark != nullptr ? " (" + std::string(mark->reason.c_str()) + ")" : "");
    case Takeover::kNone:
      break;
  }
  if (v.write) return "mark " + status;
  if (v.logDetected) return "nothing: silent, status " + status + " already";
  return seen.held ? "nothing: writing again, its held take-over dropped" : "nothing";
}

std::string Seconds(int64_t ms) {
  return std::to_string(ms / 1000) + "." + std::to_string(ms % 1000 / 100);
}

// JSON text of a string the program did not make, as -lj writes it.
std::string Quoted(const char* s) {
  std::string out;
  AppendJsonString(out, s);
  return out;
}

}  // namespace

int Explain(bool json) {
  if (ClustRole != kRoleMaster && ClustRole != kRoleSlave) {
    std::puts(json ? "{\"judges\":false,\"rows\":[]}"
                   : "this server is a member: it judges nobody");
    return 0;
  }
  DetectorMemory d;
  bool observed = LoadObservations(d, kObservedFile);
  const int64_t nowMs = MonotonicMill();
  const bool master = ClustRole == kRoleMaster;
  const char* peer = master ? cnf.clustslave.c_str() : cnf.clustmaster.c_str();
  // What the monitor reads: every row of each database that answers. Nothing is written.
  auto node = std::make_unique<NodeState>();
  ActInfo* infos[2] = {&node->mactinfo, &node->sactinfo};
  ClustRecord** rows[2] = {node->ClustsOnMaster, node->ClustsOnSlave};
  bool read[2] = {false, false};
  for (Db db : kDbs) {
    int i = Index(db);
    read[i] =
        GetClusterSql(AddressOf(db), "-all", infos[i], rows[i], db) == kDbOk && infos[i]->side == i;
    if (read[i]) d.seen.Read(db, rows[i], infos[i]->count, nowMs, true);
  }
  // The slave judges from its own database only while the master's cannot be read; the master
  // judges from its own.
  Db home = master || !read[0] ? (master ? Db::kMaster : Db::kSlave) : Db::kMaster;
  const int h = Index(home);
  std::vector<const ClustRecord*> judged;
  const ClustRecord* slaveRow = nullptr;
  for (int i = 0; i < (read[h] ? infos[h]->count : 0); ++i) {
    if (rows[h][i]->role_id == kRoleIdSlave) slaveRow = rows[h][i];
  }
  for (int i = 0; i < (read[h] ? infos[h]->count : 0); ++i) {
    const ClustRecord* r = rows[h][i];
    bool own = master ? r->role_id == kRoleIdMaster : r->role_id == kRoleIdSlave;
    bool leftToMaster = !master && home == Db::kMaster && r->role_id != kRoleIdMaster;
    if (!own && !leftToMaster) judged.push_back(r);
    if (r->role_id == kRoleIdMaster) d.MasterLastWriteMill = r->last_writemill;
  }
  std::vector<GuardRow> guardRows;
  for (const ClustRecord* r : judged) guardRows.push_back(GuardRowOf(d, *r, home, nowMs));
  bool asked = false, answers = false;
  PassGuard guard = GuardOf(guardRows, [&] {
    if (!asked) answers = Ping(peer) == 0;
    asked = true;
    return answers;
  });
  PassMarks marks;
  std::vector<TakeoverQueue::Recorded> record = TakeoverQueue::ReadRecord(kTakeoverRecord);
  auto held = [&](const char* host) {
    for (const auto& r : record) {
      if ((r.state == "held" || r.state == "maintenance") && r.run.hostname == host) return true;
    }
    return false;
  };
  std::vector<Explained> out;
  for (const ClustRecord* r : judged) {
    RowSeen seen = SeenOf(d, *r, home, held(r->hostname.c_str()), nowMs, marks);
    RowVerdict v = Judge(seen, guard, guard.writing > 0, [&](bool s) {
      if (master) return DecideOnMaster(*r, s, d.MasterLastWriteMill);
      if (home == Db::kMaster) return DecideMasterAnswering(*r, slaveRow ? *slaveRow : *r, s);
      return r->role_id == kRoleIdMaster ? DecideMasterSilent(*r, s, r->last_writemill, 0)
                                         : DecideMemberFromSlave(*r, s);
    });
    out.push_back({r, seen, Describe(v, seen, guard, marks.Of(r->hostname.c_str()), peer)});
  }
  if (json) {
    std::printf("{\"judges\":true,\"observed\":%s,\"database\":\"%s\",\"rows\":[",
                observed ? "true" : "false", home == Db::kMaster ? "master" : "slave");
    for (size_t i = 0; i < out.size(); ++i) {
      const Explained& e = out[i];
      std::printf(
          "%s{\"hostname\":%s,\"ipaddress\":%s,\"status\":%d,\"silent_seconds\":%s,"
          "\"other_silent_seconds\":%s,\"action\":%s}",
          i > 0 ? "," : "", Quoted(e.row->hostname.c_str()).c_str(),
          Quoted(e.row->ipaddress.c_str()).c_str(), e.row->status,
          Seconds(e.seen.rawSilentMs).c_str(),
          e.seen.otherSilentMs < 0 ? "null" : Seconds(e.seen.otherSilentMs).c_str(),
          Quoted(e.action.c_str()).c_str());
    }
    std::printf("],\"takeovers\":[");
    for (size_t i = 0; i < record.size(); ++i) {
      std::printf("%s{\"hostname\":%s,\"state\":%s}", i > 0 ? "," : "",
                  Quoted(record[i].run.hostname.c_str()).c_str(),
                  Quoted(record[i].state.c_str()).c_str());
    }
    std::puts("]}");
    return 0;
  }
  if (!observed)
    std::puts("no observations of the daemon here (is it running?): silences from now");
  std::printf("judging from the %s's database, %d servers writing, %d silent\n",
              home == Db::kMaster ? "master" : "slave", guard.writing, guard.silent);
  for (const Explained& e : out) {
    std::string other =
        e.seen.otherSilentMs < 0 ? "" : ", " + Seconds(e.seen.otherSilentMs) + " s in the other";
    std::printf("%s(%s) status %d, silent %s s%s: %s\n", e.row->hostname.c_str(),
                e.row->ipaddress.c_str(), e.row->status, Seconds(e.seen.rawSilentMs).c_str(),
                other.c_str(), e.action.c_str());
  }
  for (const auto& r : record) {
    std::printf("take-over of %s(%s): %s\n", r.run.hostname.c_str(), r.run.ipaddress.c_str(),
                r.state.c_str());
  }
  return 0;
}

}  // namespace qor
