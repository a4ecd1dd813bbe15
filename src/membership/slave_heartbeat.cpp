// UpdateSlave: the slave keeps the row with the role text "slave" in step in both databases and,
// while the master does not answer, judges whether its own database fell behind (status 300).
#include <cstdint>
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

const char* MasterAddr() {
  return cnf.clustmaster.c_str();
}
const char* SlaveAddr() {
  return cnf.clustslave.c_str();
}

// The slave's row in the slave's database, read after its copy in the master's database is
// written. Duplicates there are left as they are: an insert would add one more in every cycle,
// which ClustCount (the master's) never stops. The master's database has its write all the
// same, so that the master's monitor does not take a running slave for a silent one.
// As in the member's heartbeat, a read that failed says nothing about the row and is never
// followed by an insert: it counts as rows that cannot be written, and the heartbeat stops.
OneRow ReadOwnRowOnSlave(NodeState& n) {
  if (GetClusterSql(SlaveAddr(), "-slave", &n.sactinfo, n.ClustsOnSlave, Db::kSlave) != kDbOk) {
    return OneRow::kDuplicates;
  }
  OneRow found = ClassifyOne(n.sactinfo.count);
  if (found == OneRow::kDuplicates) {
    LogError("updateslave(19) %d slave rows found on %s, left unchanged", n.sactinfo.count,
             SlaveAddr());
  }
  return found;
}

// The master's database holds both rows: the slave's row there is written first, then its copy.
int WritePairOnMaster(NodeState& n, RowForm form, int64_t nowMill) {
  const ClustRecord& Mm = *n.ClustsOnMaster[0];
  ClustRecord& Ms = *n.ClustsOnMaster[1];
  CopyOwnValues(Ms, n.Clust);
  SlavePairDecision d = DecideSlavePair(Mm, Ms);
  if (d.tplsync) n.Tplsync = 1;
  if (d.noteReactivated) LogNotice("updateslave(5) status=%d", Ms.status);
  Ms.status = d.status;
  UpdateClusterSql(ReadDb(n.mactinfo, Db::kMaster), *n.ClustsOnMaster[1], 0, form,
                   n.HeartbeatWrites);
  OneRow onSlave = ReadOwnRowOnSlave(n);
  if (onSlave == OneRow::kDuplicates) return kHeartbeatStopped;
  if (onSlave == OneRow::kFound) {
    const ClustRecord& Ss = *n.ClustsOnSlave[0];
    int withlastwrite = LastWriteDiffers(Ms, Ss);
    UpdateClusterSql(Db::kSlave, Ss.id, Ms, withlastwrite, form, n.HeartbeatWrites);
    return kHeartbeatDone;
  }
  return InsertOwnRow(n, "updateslave", 6, Db::kSlave, Ms.status, Ms.status, nowMill);
}

// The master's database holds only the slave's row.
int WriteOwnOnlyOnMaster(NodeState& n, RowForm form, int64_t nowMill) {
  ClustRecord& row = *n.ClustsOnMaster[0];
  CopyOwnValues(row, n.Clust);
  row.status = Reactivated(row.status);
  UpdateClusterSql(ReadDb(n.mactinfo, Db::kMaster), *n.ClustsOnMaster[0], 1, form,
                   n.HeartbeatWrites);
  OneRow onSlave = ReadOwnRowOnSlave(n);
  if (onSlave == OneRow::kDuplicates) return kHeartbeatStopped;
  if (onSlave == OneRow::kFound) {
    UpdateClusterSql(Db::kSlave, n.ClustsOnSlave[0]->id, row, 0, form, n.HeartbeatWrites);
    return kHeartbeatDone;
  }
  return InsertOwnRow(n, "updateslave", 8, Db::kSlave, kStatusActive, n.Clust.status, nowMill);
}

int WriteWithMaster(NodeState& n, RowForm form, int64_t nowMill) {
  if (GetClusterSql(MasterAddr(), "-master_slave", &n.mactinfo, n.ClustsOnMaster, Db::kMaster) !=
      kDbOk) {
    return kHeartbeatStopped;
  }
  Trace("_xupdateslave(4): mactinfo.count=%d\n", n.mactinfo.count);
  switch (ClassifyPair(n.mactinfo.count, *n.ClustsOnMaster[0], "slave")) {
    case PairRows::kBoth:
      return WritePairOnMaster(n, form, nowMill);
    case PairRows::kOwnOnly:
      return WriteOwnOnlyOnMaster(n, form, nowMill);
    case PairRows::kOtherOnly:
      // The slave's database is not read first: the master's side alone says the row is new.
      if (InsertOwnRow(n, "updateslave", 10, ReadDb(n.mactinfo, Db::kMaster), kStatusActive,
                       n.Clust.status, nowMill) != kHeartbeatDone) {
        return kHeartbeatStopped;
      }
      InsertClusterSql(Db::kSlave, nowMill, n.Clust, n.HeartbeatWrites);
      return kHeartbeatDone;
    case PairRows::kNeither:
      return InsertOwnRow(n, "updateslave", 12, ReadDb(n.mactinfo, Db::kMaster), kStatusActive,
                          n.Clust.status, nowMill);
  }
  return kHeartbeatDone;
}

// The slave's row at index of its own database, judged without the master.
void WriteAlone(NodeState& n, int index, const ClustRecord* Sm, RowForm form) {
  ClustRecord& Ss = *n.ClustsOnSlave[index];
  CopyOwnValues(Ss, n.Clust);
  SlaveAloneDecision d = DecideSlaveAlone(Sm, Ss);
  // The notices show the two rows as n.ClustsOnMaster holds them: the master's database as an
  // earlier cycle read it; before its first read those records are still all zero, so they show 0.
  int64_t lastMaster = n.ClustsOnMaster[0]->last_writemill;
  int64_t lastSlave = n.ClustsOnMaster[1]->last_writemill;
  switch (d.note) {
    case SlaveNote::kNone:
      break;
    case SlaveNote::kBehindMasterRow:
      LogNotice("updateslave(14) lastwritemill -> %ld %ld", lastMaster, lastSlave);
      LogError("DB_OLD_STAT_2: %s(%s) is now DB_OLD_STAT(%s:%ld < %s:%ld)", Ss.hostname.c_str(),
               Ss.ipaddress.c_str(), Ss.hostname.c_str(), Ss.last_writemill, Sm->hostname.c_str(),
               Sm->last_writemill);
      break;
    case SlaveNote::kNoMasterRow:
      LogNotice("updateslave(15) lastwritemill -> %ld %ld", lastMaster, lastSlave);
      LogError("DB_OLD_STAT_3: %s(%s) is now DB_OLD_STAT(%s:%ld)", Ss.hostname.c_str(),
               Ss.ipaddress.c_str(), Ss.hostname.c_str(), Ss.last_writemill);
      break;
  }
  Ss.status = d.status;
  Ss.last_writemill = d.last_writemill;
  UpdateClusterSql(Db::kSlave, *n.ClustsOnSlave[index], d.withlastwrite, form, n.HeartbeatWrites);
}

int WriteWithoutMaster(NodeState& n, RowForm form, int64_t nowMill) {
  if (GetClusterSql(SlaveAddr(), "-master_slave", &n.sactinfo, n.ClustsOnSlave, Db::kSlave) !=
      kDbOk) {
    return kHeartbeatStopped;
  }
  switch (ClassifyPair(n.sactinfo.count, *n.ClustsOnSlave[0], "slave")) {
    case PairRows::kBoth:
      WriteAlone(n, 1, n.ClustsOnSlave[0], form);
      return kHeartbeatDone;
    case PairRows::kOwnOnly:
      WriteAlone(n, 0, nullptr, form);
      return kHeartbeatDone;
    case PairRows::kOtherOnly:
      if (!GuardInsert(n, "updateslave", 16)) return kHeartbeatStopped;
      break;
    case PairRows::kNeither:
      if (!GuardInsert(n, "_xupdateslave", 17)) return kHeartbeatStopped;
      break;
  }
  n.Clust.status = kStatusActive;
  InsertClusterSql(Db::kSlave, nowMill, n.Clust, n.HeartbeatWrites);
  return kHeartbeatDone;
}

}  // namespace

int UpdateSlave(NodeState& n, RowForm form, int64_t nowMill) {
  if (!BeginHeartbeat(n, {"updateslave", kRoleSlave, "Slave", "slave", 18}, cnf.clustslave.c_str(),
                      nowMill)) {
    return kHeartbeatStopped;
  }
  if (Ping(MasterAddr()) == 0) return WriteWithMaster(n, form, nowMill);
  return WriteWithoutMaster(n, form, nowMill);
}

}  // namespace qor
