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
OneRow ReadOwnRowOnSlave() {
  if (GetClusterSql(SlaveAddr(), "-slave", &sactinfo, ClustsOnSlave, Db::kSlave) != kDbOk) {
    return OneRow::kDuplicates;
  }
  OneRow found = ClassifyOne(sactinfo.count);
  if (found == OneRow::kDuplicates) {
    LogError("updateslave(19) %d slave rows found on %s, left unchanged", sactinfo.count,
             SlaveAddr());
  }
  return found;
}

// The master's database holds both rows: the slave's row there is written first, then its copy.
int WritePairOnMaster(RowForm form, int64_t nowMill) {
  const ClustRecord& Mm = *ClustsOnMaster[0];
  ClustRecord& Ms = *ClustsOnMaster[1];
  CopyOwnValues(Ms, Clust, Containers);
  SlavePairDecision d = DecideSlavePair(Mm, Ms);
  if (d.tplsync) Tplsync = 1;
  if (d.noteReactivated) LogNotice("updateslave(5) status=%d", Ms.status);
  Ms.status = d.status;
  UpdateClusterSql(ReadDb(mactinfo, Db::kMaster), *ClustsOnMaster[1], 0, form);
  OneRow onSlave = ReadOwnRowOnSlave();
  if (onSlave == OneRow::kDuplicates) return kHeartbeatStopped;
  if (onSlave == OneRow::kFound) {
    const ClustRecord& Ss = *ClustsOnSlave[0];
    int withlastwrite = LastWriteDiffers(Ms, Ss);
    UpdateClusterSql(Db::kSlave, Ss.id, Ms, withlastwrite, form);
    return kHeartbeatDone;
  }
  return InsertOwnRow("updateslave", 6, Db::kSlave, Ms.status, Ms.status, nowMill);
}

// The master's database holds only the slave's row.
int WriteOwnOnlyOnMaster(RowForm form, int64_t nowMill) {
  ClustRecord& row = *ClustsOnMaster[0];
  CopyOwnValues(row, Clust, Containers);
  row.status = Reactivated(row.status);
  UpdateClusterSql(ReadDb(mactinfo, Db::kMaster), *ClustsOnMaster[0], 1, form);
  OneRow onSlave = ReadOwnRowOnSlave();
  if (onSlave == OneRow::kDuplicates) return kHeartbeatStopped;
  if (onSlave == OneRow::kFound) {
    UpdateClusterSql(Db::kSlave, ClustsOnSlave[0]->id, row, 0, form);
    return kHeartbeatDone;
  }
  return InsertOwnRow("updateslave", 8, Db::kSlave, kStatusActive, Clust.status, nowMill);
}

int WriteWithMaster(RowForm form, int64_t nowMill) {
  if (GetClusterSql(MasterAddr(), "-master_slave", &mactinfo, ClustsOnMaster, Db::kMaster) !=
      kDbOk) {
    return kHeartbeatStopped;
  }
  Trace("_xupdateslave(4): mactinfo.count=%d\n", mactinfo.count);
  switch (ClassifyPair(mactinfo.count, *ClustsOnMaster[0], "slave")) {
    case PairRows::kBoth:
      return WritePairOnMaster(form, nowMill);
    case PairRows::kOwnOnly:
      return WriteOwnOnlyOnMaster(form, nowMill);
    case PairRows::kOtherOnly:
      // The slave's database is not read first: the master's side alone says the row is new.
      if (InsertOwnRow("updateslave", 10, ReadDb(mactinfo, Db::kMaster), kStatusActive,
                       Clust.status, nowMill) != kHeartbeatDone) {
        return kHeartbeatStopped;
      }
      InsertClusterSql(Db::kSlave, nowMill, Clust);
      return kHeartbeatDone;
    case PairRows::kNeither:
      return InsertOwnRow("updateslave", 12, ReadDb(mactinfo, Db::kMaster), kStatusActive,
                          Clust.status, nowMill);
  }
  return kHeartbeatDone;
}

// The slave's row at index of its own database, judged without the master.
void WriteAlone(int index, const ClustRecord* Sm, RowForm form) {
  ClustRecord& Ss = *ClustsOnSlave[index];
  CopyOwnValues(Ss, Clust, Containers);
  SlaveAloneDecision d = DecideSlaveAlone(Sm, Ss);
  // The notices show the two rows as last read from the master's database, in an earlier cycle;
  // before its first read those records are still all zero, so they show 0.
  int64_t lastMaster = ClustsOnMaster[0]->last_writemill;
  int64_t lastSlave = ClustsOnMaster[1]->last_writemill;
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
  UpdateClusterSql(Db::kSlave, *ClustsOnSlave[index], d.withlastwrite, form);
}

int WriteWithoutMaster(RowForm form, int64_t nowMill) {
  if (GetClusterSql(SlaveAddr(), "-master_slave", &sactinfo, ClustsOnSlave, Db::kSlave) != kDbOk) {
    return kHeartbeatStopped;
  }
  switch (ClassifyPair(sactinfo.count, *ClustsOnSlave[0], "slave")) {
    case PairRows::kBoth:
      WriteAlone(1, ClustsOnSlave[0], form);
      return kHeartbeatDone;
    case PairRows::kOwnOnly:
      WriteAlone(0, nullptr, form);
      return kHeartbeatDone;
    case PairRows::kOtherOnly:
      if (!GuardInsert("updateslave", 16)) return kHeartbeatStopped;
      break;
    case PairRows::kNeither:
      if (!GuardInsert("_xupdateslave", 17)) return kHeartbeatStopped;
      break;
  }
  Clust.status = kStatusActive;
  InsertClusterSql(Db::kSlave, nowMill, Clust);
  return kHeartbeatDone;
}

}  // namespace

int UpdateSlave(RowForm form, int64_t nowMill) {
  if (!BeginHeartbeat({"updateslave", kRoleSlave, "Slave", "slave", 18}, cnf.clustslave.c_str(),
                      nowMill)) {
    return kHeartbeatStopped;
  }
  if (Ping(MasterAddr()) == 0) return WriteWithMaster(form, nowMill);
  return WriteWithoutMaster(form, nowMill);
}

}  // namespace qor
