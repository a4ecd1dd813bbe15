// UpdateMaster: the master keeps the row with the role text "master" in step in both databases
// and judges from last_writemill whether its own database fell behind (status 300).
#include <cstdio>

#include "base/clock.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "membership/heartbeat.h"
#include "membership/heartbeat_decision.h"
#include "net/ping.h"
#include "store/cluster_query.h"
#include "store/cluster_writes.h"
#include "store/containers.h"
#include "store/pools.h"

namespace qor {

namespace {

void LogMasterNote(MasterNote note, const ClustRecord& Mm, const ClustRecord& Ms) {
  switch (note) {
    case MasterNote::kNone:
      return;
    case MasterNote::kSlaveCopyOld:
      LogNotice("updatemaster(5) lastwritemill -> %ld %ld", Mm.last_writemill, Ms.last_writemill);
      return;
    case MasterNote::kBehindSlaveCopy:
      LogNotice("updatemaster(6) lastwritemill -> %ld %ld", Mm.last_writemill, Ms.last_writemill);
      return;
    case MasterNote::kBehindSlaveRow:
      LogNotice("updatemaster(7) lastwritemill -> %ld %ld", Mm.last_writemill, Ms.last_writemill);
      return;
    case MasterNote::kBehindAlone:
      LogNotice("updatemaster(10) lastwritemill -> %ld %ld", Mm.last_writemill, Ms.last_writemill);
      LogError("DB_OLD_STAT_1: %s(%s) is now DB_OLD_STAT(%s:%ld < %s:%ld)", Mm.hostname.c_str(),
               Mm.ipaddress.c_str(), Mm.hostname.c_str(), Mm.last_writemill, Ms.hostname.c_str(),
               Ms.last_writemill);
      return;
  }
}

// The master's database holds the master's and the slave's rows: the slave's database decides
// with it when its server answers.
int WritePair(NodeState& n, RowForm form, int64_t nowMill) {
  const Db own = ReadDb(n.mactinfo, Db::kMaster);
  const char* slave = cnf.clustslave.c_str();
  ClustRecord& Mm = *n.ClustsOnMaster[0];
  const ClustRecord& Ms = *n.ClustsOnMaster[1];
  CopyOwnValues(Mm, n.Clust);
  // A read that failed counts as a slave that did not answer: it says nothing about the copy,
  // and an insert after it would give the master a second row there.
  bool answered = Ping(slave) == 0 && GetClusterSql(slave, "-master", &n.sactinfo, n.ClustsOnSlave,
                                                    Db::kSlave) == kDbOk;
  // Only a read of this cycle says anything about the slave's copy.
  const ClustRecord* Sm = answered && n.sactinfo.count == 1 ? n.ClustsOnSlave[0] : nullptr;
  MasterRowDecision d = DecideMasterRow(Mm, Ms, Sm, answered, n.sactinfo.count);
  LogMasterNote(d.note, Mm, Ms);
  Mm.status = d.status;
  Mm.last_writemill = d.last_writemill;
  switch (d.action) {
    case MasterAction::kWriteMasterOnly:
      if (answered && n.sactinfo.count > 1) {
        LogError("updatemaster(16) %d master rows found on %s, left unchanged there",
                 n.sactinfo.count, slave);
      }
      UpdateClusterSql(own, *n.ClustsOnMaster[0], d.withlastwrite, form, n.HeartbeatWrites);
      return kHeartbeatDone;
    case MasterAction::kWriteBoth:
      UpdateClusterSql(own, *n.ClustsOnMaster[0], d.withlastwrite, form, n.HeartbeatWrites);
      UpdateClusterSql(Db::kSlave, Sm->id, Mm, d.withlastwrite, form, n.HeartbeatWrites);
      return kHeartbeatDone;
    case MasterAction::kInsertIntoSlave:
      if (InsertOwnRow(n, "updatemaster", 8, Db::kSlave, Mm.status, Mm.status, nowMill) !=
          kHeartbeatDone) {
        return kHeartbeatStopped;
      }
      UpdateClusterSql(own, *n.ClustsOnMaster[0], d.withlastwrite, form, n.HeartbeatWrites);
      return kHeartbeatDone;
  }
  return kHeartbeatDone;
}

// The master's own database is there but failed the read (hung, refusing): nothing can be judged,
// but the master's copy in the slave's database keeps moving, so that nobody who reads that
// database takes a running master for a dead one.
int KeepAliveOnSlave(NodeState& n, RowForm form) {
  const char* slave = cnf.clustslave.c_str();
  if (Ping(slave) != 0) return kHeartbeatStopped;
  GetClusterSql(slave, "-master", &n.sactinfo, n.ClustsOnSlave, Db::kSlave);
  if (n.sactinfo.count != 1) return kHeartbeatStopped;
  LogNotice("updatemaster(17) own database failed, row kept on %s", slave);
  CopyOwnValues(*n.ClustsOnSlave[0], n.Clust);
  UpdateClusterSql(Db::kSlave, *n.ClustsOnSlave[0], 0, form, n.HeartbeatWrites);
  return kHeartbeatDone;
}

}  // namespace

int UpdateMaster(NodeState& n, RowForm form, int64_t nowMill) {
  if (!BeginHeartbeat(n, {"updatemaster", kRoleMaster, "Master", "master", 15},
                      cnf.clustmaster.c_str(), nowMill)) {
    return kHeartbeatStopped;
  }

  const char* master = cnf.clustmaster.c_str();
  int read = GetClusterSql(master, "-master_slave", &n.mactinfo, n.ClustsOnMaster, Db::kMaster);
  Trace("_xupdatemaster(4): mactinfo.count=%d\n", n.mactinfo.count);
  if (read != kDbOk && mpool != nullptr) return KeepAliveOnSlave(n, form);
  const Db own = ReadDb(n.mactinfo, Db::kMaster);
  switch (ClassifyPair(n.mactinfo.count, *n.ClustsOnMaster[0], "master")) {
    case PairRows::kBoth:
      return WritePair(n, form, nowMill);
    case PairRows::kOwnOnly:
      // Without the slave's row there is nothing to judge against: no read of the slave's side.
      CopyOwnValues(*n.ClustsOnMaster[0], n.Clust);
      UpdateClusterSql(own, *n.ClustsOnMaster[0], 0, form, n.HeartbeatWrites);
      return kHeartbeatDone;
    case PairRows::kOtherOnly:
      return InsertOwnRow(n, "updatemaster", 11, own, kStatusActive, kStatusActive, nowMill);
    case PairRows::kNeither:
      return InsertOwnRow(n, "updatemaster", 13, own, kStatusActive, kStatusActive, nowMill);
  }
  return kHeartbeatDone;
}

}  // namespace qor
