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
int WritePair(RowForm form, int64_t nowMill) {
  const Db own = ReadDb(mactinfo, Db::kMaster);
  const char* slave = cnf.clustslave.c_str();
  ClustRecord& Mm = *ClustsOnMaster[0];
  const ClustRecord& Ms = *ClustsOnMaster[1];
  CopyOwnValues(Mm, Clust, Containers);
  // A read that failed counts as a slave that did not answer: it says nothing about the copy,
  // and an insert after it would give the master a second row there.
  bool answered = Ping(slave) == 0 &&
                  GetClusterSql(slave, "-master", &sactinfo, ClustsOnSlave, Db::kSlave) == kDbOk;
  // Only a read of this cycle says anything about the slave's copy.
  const ClustRecord* Sm = answered && sactinfo.count == 1 ? ClustsOnSlave[0] : nullptr;
  MasterRowDecision d = DecideMasterRow(Mm, Ms, Sm, answered, sactinfo.count);
  LogMasterNote(d.note, Mm, Ms);
  Mm.status = d.status;
  Mm.last_writemill = d.last_writemill;
  switch (d.action) {
    case MasterAction::kWriteMasterOnly:
      if (answered && sactinfo.count > 1) {
        LogError("updatemaster(16) %d master rows found on %s, left unchanged there",
                 sactinfo.count, slave);
      }
      UpdateClusterSql(own, *ClustsOnMaster[0], d.withlastwrite, form);
      return kHeartbeatDone;
    case MasterAction::kWriteBoth:
      UpdateClusterSql(own, *ClustsOnMaster[0], d.withlastwrite, form);
      UpdateClusterSql(Db::kSlave, Sm->id, Mm, d.withlastwrite, form);
      return kHeartbeatDone;
    case MasterAction::kInsertIntoSlave:
      if (InsertOwnRow("updatemaster", 8, Db::kSlave, Mm.status, Mm.status, nowMill) !=
          kHeartbeatDone) {
        return kHeartbeatStopped;
      }
      UpdateClusterSql(own, *ClustsOnMaster[0], d.withlastwrite, form);
      return kHeartbeatDone;
  }
  return kHeartbeatDone;
}

// The master's own database is there but failed the read (hung, refusing): nothing can be judged,
// but the master's copy in the slave's database keeps moving, so that nobody who reads that
// database takes a running master for a dead one.
int KeepAliveOnSlave(RowForm form) {
  const char* slave = cnf.clustslave.c_str();
  if (Ping(slave) != 0) return kHeartbeatStopped;
  GetClusterSql(slave, "-master", &sactinfo, ClustsOnSlave, Db::kSlave);
  if (sactinfo.count != 1) return kHeartbeatStopped;
  LogNotice("updatemaster(17) own database failed, row kept on %s", slave);
  CopyOwnValues(*ClustsOnSlave[0], Clust, Containers);
  UpdateClusterSql(Db::kSlave, *ClustsOnSlave[0], 0, form);
  return kHeartbeatDone;
}

}  // namespace

int UpdateMaster(RowForm form, int64_t nowMill) {
  if (!BeginHeartbeat({"updatemaster", kRoleMaster, "Master", "master", 15},
                      cnf.clustmaster.c_str(), nowMill)) {
    return kHeartbeatStopped;
  }

  const char* master = cnf.clustmaster.c_str();
  int read = GetClusterSql(master, "-master_slave", &mactinfo, ClustsOnMaster, Db::kMaster);
  Trace("_xupdatemaster(4): mactinfo.count=%d\n", mactinfo.count);
  if (read != kDbOk && mpool != nullptr) return KeepAliveOnSlave(form);
  const Db own = ReadDb(mactinfo, Db::kMaster);
  switch (ClassifyPair(mactinfo.count, *ClustsOnMaster[0], "master")) {
    case PairRows::kBoth:
      return WritePair(form, nowMill);
    case PairRows::kOwnOnly:
      // Without the slave's row there is nothing to judge against: no read of the slave's side.
      CopyOwnValues(*ClustsOnMaster[0], Clust, Containers);
      UpdateClusterSql(own, *ClustsOnMaster[0], 0, form);
      return kHeartbeatDone;
    case PairRows::kOtherOnly:
      return InsertOwnRow("updatemaster", 11, own, kStatusActive, kStatusActive, nowMill);
    case PairRows::kNeither:
      return InsertOwnRow("updatemaster", 13, own, kStatusActive, kStatusActive, nowMill);
  }
  return kHeartbeatDone;
}

}  // namespace qor
