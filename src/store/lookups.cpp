#include "store/lookups.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "base/log.h"
#include "config/qorconf.h"
#include "net/ping.h"
#include "store/cluster_query.h"
#include "store/pools.h"

namespace qor {

int CheckCluster(int* masterAlive, int* slaveAlive, int cluster, const char* master,
                 const char* slave, ClustRecord** records) {
  *masterAlive = 0;
  *slaveAlive = 0;
  if (cluster == 0) return 1;
  ActInfo info;
  if (Ping(master) == 0) {
    GetClusterSql(master, "-active_all_master_slave", &info, records, Db::kMaster);
  } else {
    GetClusterSql(slave, "-active_all_master_slave", &info, records, Db::kSlave);
  }
  if (info.count == 2) {
    *masterAlive = 1;
    *slaveAlive = 1;
    return 0;
  }
  if (info.count == 1) {
    bool isMaster = records[0]->role == "master";
    *masterAlive = isMaster ? 1 : 0;
    *slaveAlive = isMaster ? 0 : 1;
    return 0;
  }
  return 1;
}

int IsClustMaster(const char* server, const char* selector, ClustRecord** records) {
  ActInfo info;
  GetClusterSql(server, selector, &info, records, Db::kMaster);
  if (info.count != 1) return 1;
  return records[0]->role == "master" ? 0 : 1;
}

int GetClust(int count, ClustRecord** records, int index, ClustRecord& own) {
  Trace("_xgetclust(1): count=%d i=%d\n", count, index);
  if (count < 1) return 1;
  GetQorconf();
  const ClustRecord& r = *records[index];
  // The utilisation figures, the version and the insert clock of own stay as they are.
  ClustRecord keep = own;
  own = r;
  own.cpuutil = keep.cpuutil;
  own.memutil = keep.memutil;
  own.diskutil = keep.diskutil;
  own.qorver = keep.qorver;
  own.qortimemill = keep.qortimemill;
  return 0;
}

int GetTarget(const char* server, ClustRecord** records, ClustRecord& own,
              FixedText<128>& Clusttarget) {
  Trace("_xgettarget(1): starting...");
  ActInfo info;
  GetClusterSql(server, "-target", &info, records, Db::kMaster);
  GetClust(info.count, records, 0, own);
  Clusttarget.set(records[0]->ipaddress);
  Trace("_xgettarget(2): clusttarget -> %s\n", Clusttarget.c_str());
  return info.count == 1 ? 0 : 1;
}

int ReadClusterList(const char* server, ClustRecord** records) {
  // The slave's own listing needs its pool; anything else reads the master's copy first.
  Db db = Db::kMaster;
  if (!(DbOfAddress(server, &db) && PoolOf(db) != nullptr)) db = Db::kMaster;
  ActInfo info;
  GetClusterSql(server, "-all", &info, records, db);
  return info.count;
}

void ShowClusterList(const char* server, int full) {
  if (!Cluster) {
    std::printf("_Cluster disabled -> %d\n", Cluster);
    return;
  }
  auto rows = std::make_unique<ClusterRows>();
  ClustRecord** records = *rows;
  const int count = ReadClusterList(server, records);
  std::puts(full ? "[id] host ip clustid role stat lastwrt tplsyncstat tplupd tplsync loadavgpp "
                   "containers updated cores cpu mem disk qorver"
                 : "[id] host ip clustid role stat lastwrt tplsyncstat tplupd tplsync loadavgpp "
                   "containers updated");
  for (int i = 0; i < count; ++i) {
    const ClustRecord& r = *records[i];
    std::printf("[%d] %s %s %s %s %d %ld %d %ld %ld %0.2f %d %ld", r.id, r.hostname.c_str(),
                r.ipaddress.c_str(), r.clusterid.c_str(), r.role.c_str(), r.status,
                static_cast<long>(r.last_writemill), r.tpl_syncstate,
                static_cast<long>(r.tpl_updatemill), static_cast<long>(r.tpl_syncmill),
                r.cpuloadavgpp, r.containers, static_cast<long>(r.updated_at));
    if (full) {
      std::printf(" %d %0.2f %0.2f %0.2f %s", r.cpucores, r.cpuutil, r.memutil, r.diskutil,
                  r.qorver.c_str());
    }
    std::printf("\n");
  }
}

}  // namespace qor
