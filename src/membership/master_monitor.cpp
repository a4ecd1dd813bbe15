// MonitorCluster and MonitorOnMaster: the master reads every row of its own database, marks the
// servers that stopped writing, copies each new status to the slave's database under the id the
// row has there, runs the take-over for servers that were active, and marks template copies that
// are behind its own tree.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "membership/cutoff.h"
#include "membership/heartbeat.h"
#include "membership/monitor.h"
#include "membership/monitor_decision.h"
#include "membership/nodedown.h"
#include "membership/silence.h"
#include "store/cluster_query.h"
#include "store/cluster_writes.h"
#include "store/pools.h"

namespace qor {

int64_t MasterLastWriteMill = 0;
int64_t SlaveLastWriteMill = 0;
int64_t MasterTplUpdateMill = 0;
int64_t DetectedCount[kDetectedKinds] = {};

int MonitorCluster(int mode) {
  if (ClustRole == kRoleMaster) return MonitorOnMaster(mode);
  if (ClustRole == kRoleSlave) return MonitorOnSlave(mode);
  return kMonitorNotMine;
}

namespace {

// The slave's answer to ping, asked at most once per pass: with the slave's server down every
// ask costs three seconds, and a pass may need it for every row.
class SlaveReach {
 public:
  bool answers() {
    if (reply_ == Reply::kNotAsked) {
      reply_ = Ping(cnf.clustslave.c_str(), 1, 3) == 0 ? Reply::kAnswered : Reply::kSilent;
    }
    return reply_ == Reply::kAnswered;
  }

 private:
  enum class Reply { kNotAsked, kAnswered, kSilent };
  Reply reply_ = Reply::kNotAsked;
};

// The decided status, to the master's database by the row's id, then to the slave's database by
// the id the same host has there: each database numbers its rows itself. Returns the status the
// slave's copy had before, 0 when it was not read.
int WriteStatus(const ClustRecord& row, int status, SlaveReach& slave) {
  SetStatusClusterSql(cnf.clustmaster.c_str(), row.id, status);
  if (!slave.answers()) return 0;
  ActInfo info;
  GetClusterSql(cnf.clustslave.c_str(), cnf.dbuser.c_str(), cnf.dbpwd.c_str(), row.hostname.c_str(),
                &info, ClustsTemp, 1);
  if (info.count != 1) return 0;
  int before = ClustsTemp[0]->status;
  SetStatusClusterSql(cnf.clustslave.c_str(), ClustsTemp[0]->id, status);
  return before;
}

// The host names the slave's database holds inactive, read only when a row of this pass looks
// stale for an outage of the master's database: the slave may have judged it meanwhile.
std::vector<std::string> InactiveOnSlave(const Silence& silence, SlaveReach& slave) {
  std::vector<std::string> names;
  bool held = false;
  for (int i = 0; i < mactinfo.count && !held; ++i) held = silence.HeldBack(*ClustsOnMaster[i]);
  if (!held || !slave.answers()) return names;
  ActInfo info;
  GetClusterSql(cnf.clustslave.c_str(), cnf.dbuser.c_str(), cnf.dbpwd.c_str(), "-inactive", &info,
                ClustsTemp, 1);
  for (int i = 0; i < info.count; ++i) names.emplace_back(ClustsTemp[i]->hostname.c_str());
  return names;
}

void CheckRow(ClustRecord& row, int64_t now, Silence& silence, SlaveReach& slave,
              const std::vector<std::string>& inactiveOnSlave, PassTakeovers& takeovers) {
  bool judged = std::find(inactiveOnSlave.begin(), inactiveOnSlave.end(), row.hostname.c_str()) !=
                inactiveOnSlave.end();
  int64_t silentFor = SilenceOnMaster(row, silence.Age(row), silence.For(row), judged);
  Trace("_xmonitoronmaster(9): delta=%ld ldate1=%ld ldate2=%ld\n", static_cast<long>(silentFor),
        static_cast<long>(now), static_cast<long>(row.updated_at));
  MonitorVerdict v = DecideOnMaster(row, silentFor, MasterLastWriteMill);
  if (v.silent) {
    ++DetectedCount[0];
    LogError(
        "Detected_1 that %s(%s)<%ld> has not been updated for more than 15 seconds since the "
        "current time<%ld>",
        row.hostname.c_str(), row.ipaddress.c_str(), static_cast<long>(row.updated_at),
        static_cast<long>(now));
  }
  if (v.old) {
    LogNotice("monitoronmaster(1) lastwritemill -> %ld %ld", static_cast<long>(MasterLastWriteMill),
              static_cast<long>(row.last_writemill));
    LogError("DB_OLD_STAT_4: %s(%s) is now DB_OLD_STAT(%s:%ld > %s:%ld)", row.hostname.c_str(),
             row.ipaddress.c_str(), cnf.clustmaster.c_str(), static_cast<long>(MasterLastWriteMill),
             row.hostname.c_str(), static_cast<long>(row.last_writemill));
    row.last_writemill = 0;
  }
  int slaveCopy = v.changed ? WriteStatus(row, v.status, slave) : 0;
  takeovers.Saw(row, v.silent);
  // The take-over sees the row as read, but with the last write cleared for a slave made old.
  if (TakeoverDue(v, row, slaveCopy)) {
    takeovers.Due(row);
  } else if (v.takeover) {
    LogNotice("monitoronmaster(3) %s(%s) was taken over by the slave already", row.hostname.c_str(),
              row.ipaddress.c_str());
  }
}

void MarkTemplate(const ClustRecord& row, SlaveReach& slave) {
  if (!TemplateMarkDue(row, MasterTplUpdateMill)) return;
  UpdateTplsyncSql(cnf.clustmaster.c_str(), row.hostname.c_str(), row.tpl_syncmill, kTplOld);
  if (slave.answers()) {
    UpdateTplsyncSql(cnf.clustslave.c_str(), row.hostname.c_str(), row.tpl_syncmill, kTplOld);
  }
}

}  // namespace

int MonitorOnMaster(int) {
  char date[32];
  int64_t now = mygetdate(date, sizeof date, kDateTime);
  Trace("_xmonitoronmaster(1): starting at %s (%ld)\n", date, static_cast<long>(now));
  if (ClustRole != kRoleMaster) return kMonitorNotMine;
  GetClusterSql(cnf.clustmaster.c_str(), cnf.dbuser.c_str(), cnf.dbpwd.c_str(), "-all", &mactinfo,
                ClustsOnMaster, 0);
  // Only the master's own database is judged here: while it does not answer, the read falls back
  // to the slave's, from which the slave keeps the watch; judged from both sides, a server that
  // died then would be taken over twice.
  if (mactinfo.side != 0) return kMonitorDone;
  Silence silence(0, now, "monitoronmaster(2)");
  SlaveReach slave;
  PassTakeovers takeovers("monitoronmaster(4)", now);
  const std::vector<std::string> inactiveOnSlave = InactiveOnSlave(silence, slave);
  for (int i = 0; i < mactinfo.count; ++i) {
    ClustRecord& row = *ClustsOnMaster[i];
    // Master rows come first by role_id; each one read sets the reference for the rows after it.
    if (row.role_id == kRoleIdMaster) {
      MasterLastWriteMill = row.last_writemill;
      MasterTplUpdateMill = row.tpl_updatemill;
      continue;
    }
    CheckRow(row, now, silence, slave, inactiveOnSlave, takeovers);
    MarkTemplate(row, slave);
  }
  takeovers.Finish([&] { return slave.answers(); }, cnf.clustslave.c_str());
  return kMonitorDone;
}

}  // namespace qor
