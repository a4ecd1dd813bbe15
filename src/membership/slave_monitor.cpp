// MonitorOnSlave: the slave watches the master. While the master's host answers ping it judges
// the master's row as the master's own database holds it and writes the verdict to both
// databases; while it does not, it judges the master's and the members' rows from its own
// database and writes there only.
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

namespace {

// kind: 2 to 4, the number of the Detected_ line.
void LogSilent(int kind, const ClustRecord& row, int64_t now) {
  ++DetectedCount[kind - 1];
  LogError(
      "Detected_%d that %s(%s)<%ld> has not been updated for more than 15 seconds since the "
      "current time<%ld>",
      kind, row.hostname.c_str(), row.ipaddress.c_str(), static_cast<long>(row.updated_at),
      static_cast<long>(now));
}

int64_t TraceAge(int step, int64_t now, const ClustRecord& row, int64_t silentFor) {
  Trace("_xmonitoronslave(%d): delta=%ld ldate1=%ld ldate2=%ld\n", step,
        static_cast<long>(silentFor), static_cast<long>(now), static_cast<long>(row.updated_at));
  return silentFor;
}

int WatchFromSlave(int64_t now, bool masterAnswers);

// idOnSlave: the id of the master's row in the slave's database.
int WatchAnsweringMaster(int64_t now, int idOnSlave) {
  int read = GetClusterSql(cnf.clustmaster.c_str(), cnf.dbuser.c_str(), cnf.dbpwd.c_str(),
                           "-master_slave", &mactinfo, ClustsOnMaster, 0);
  Trace("_xmonitoronslave(2): mactinfo.count=%d\n", mactinfo.count);
  // The master's host answers but its database does not (stopped, hung): the master cannot judge
  // anyone from there, so the slave keeps the watch from its own database, as when the host is
  // silent.
  if (read != kDbOk || mactinfo.side != 0) return WatchFromSlave(now, true);
  DropHeldTakeovers("monitoronslave(9)");
  if (mactinfo.count != 2) return kMonitorDone;
  ClustRecord& M = *ClustsOnMaster[0];
  const ClustRecord& S = *ClustsOnMaster[1];
  // Ordered by role text: anything but the master's and the slave's row is no pair to judge.
  if (!(M.role == "master" && S.role == "slave")) return kMonitorDone;
  if (M.status != kStatusActive && M.status != kStatusInactive) return kMonitorDone;
  Silence silence(0, now, "monitoronslave(8)");
  int64_t silentFor = TraceAge(3, now, M, silence.For(M));
  MonitorVerdict v = DecideMasterAnswering(M, S, silentFor);
  if (!v.silent) return kMonitorDone;
  LogSilent(2, M, now);
  if (v.old) {
    LogError("DB_OLD_STAT_5: %s(%s) is now DB_OLD_STAT(%s:%ld < %s:%ld)", M.hostname.c_str(),
             M.ipaddress.c_str(), M.hostname.c_str(), static_cast<long>(M.last_writemill),
             S.hostname.c_str(), static_cast<long>(S.last_writemill));
    LogNotice("monitoronslave(4) lastwritemill -> %ld %ld", static_cast<long>(M.last_writemill),
              static_cast<long>(S.last_writemill));
    M.last_writemill = 0;
  }
  SetStatusClusterSql(cnf.clustmaster.c_str(), M.id, v.status);
  SetStatusClusterSql(cnf.clustslave.c_str(), idOnSlave, v.status);
  if (v.takeover) Qordown(M);
  return kMonitorDone;
}

void JudgeMasterAlone(const ClustRecord& R, int64_t now, int64_t silentFor,
                      PassTakeovers& takeovers) {
  MasterLastWriteMill = R.last_writemill;
  if (R.status != kStatusActive && R.status != kStatusInactive) return;
  TraceAge(6, now, R, silentFor);
  MonitorVerdict v = DecideMasterSilent(R, silentFor, MasterLastWriteMill, SlaveLastWriteMill);
  if (!v.silent) return;
  LogSilent(3, R, now);
  if (v.old) {
    LogError("DB_OLD_STAT_6: %s(%s) is now DB_OLD_STAT(%s:%ld < %s:%ld)", R.hostname.c_str(),
             R.ipaddress.c_str(), cnf.clustmaster.c_str(), static_cast<long>(MasterLastWriteMill),
             cnf.clustslave.c_str(), static_cast<long>(SlaveLastWriteMill));
  }
  SetStatusClusterSql(cnf.clustslave.c_str(), R.id, v.status);
  if (v.takeover) takeovers.Due(R);
}

void JudgeMemberAlone(const ClustRecord& R, int64_t now, int64_t silentFor,
                      PassTakeovers& takeovers) {
  if (R.status != kStatusActive) return;
  MonitorVerdict v = DecideMemberFromSlave(R, TraceAge(7, now, R, silentFor));
  if (!v.silent) return;
  LogSilent(4, R, now);
  SetStatusClusterSql(cnf.clustslave.c_str(), R.id, v.status);
  takeovers.Due(R);
}

// The master's host is silent, or its database: the slave keeps the watch from its own database
// alone. masterAnswers: the master's host answered ping in this pass.
int WatchFromSlave(int64_t now, bool masterAnswers) {
  const char* slave = cnf.clustslave.c_str();
  GetClusterSql(slave, cnf.dbuser.c_str(), cnf.dbpwd.c_str(), "-slave", &sactinfo, ClustsOnSlave,
                1);
  SlaveLastWriteMill = sactinfo.count >= 1 ? ClustsOnSlave[0]->last_writemill : 0;
  GetClusterSql(slave, cnf.dbuser.c_str(), cnf.dbpwd.c_str(), "-not_slave", &sactinfo,
                ClustsOnSlave, 1);
  Trace("_xmonitoronslave(5): sactinfo.count=%d\n", sactinfo.count);
  Silence silence(sactinfo.side, now, "monitoronslave(8)");
  PassTakeovers takeovers("monitoronslave(9)", now);
  for (int i = 0; i < sactinfo.count; ++i) {
    const ClustRecord& R = *ClustsOnSlave[i];
    int64_t silentFor = silence.For(R);
    takeovers.Saw(R, IsSilent(silentFor));
    if (R.role == "master") {
      JudgeMasterAlone(R, now, silentFor, takeovers);
    } else {
      JudgeMemberAlone(R, now, silentFor, takeovers);
    }
  }
  takeovers.Finish([&] { return masterAnswers; }, cnf.clustmaster.c_str());
  return kMonitorDone;
}

}  // namespace

int MonitorOnSlave(int) {
  char date[32];
  int64_t now = mygetdate(date, sizeof date, kDateTime);
  Trace("_xmonitoronslave(1): starting at %s (%ld)\n", date, static_cast<long>(now));
  if (ClustRole != kRoleSlave) return kMonitorNotMine;
  GetClusterSql(cnf.clustslave.c_str(), cnf.dbuser.c_str(), cnf.dbpwd.c_str(), "-master", &sactinfo,
                ClustsOnSlave, 1);
  if (sactinfo.count != 1) return kMonitorDone;
  // A master that the slave's database already holds as old is not watched, nor are the members.
  if (ClustsOnSlave[0]->status == kStatusOld) return kMonitorDone;
  int idOnSlave = ClustsOnSlave[0]->id;
  if (Ping(cnf.clustmaster.c_str(), 1, 3) == 0) return WatchAnsweringMaster(now, idOnSlave);
  return WatchFromSlave(now, false);
}

}  // namespace qor
