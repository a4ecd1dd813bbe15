#include "membership/heartbeat.h"

#include <unistd.h>

#include <cstdio>

#include "base/clock.h"
#include "base/log.h"
#include "config/processors.h"
#include "config/qorconf.h"
#include "membership/heartbeat_decision.h"
#include "metrics/containers.h"
#include "metrics/cpuinfo.h"
#include "metrics/ifaddress.h"
#include "store/cluster_query.h"

namespace qor {

// What the heartbeat read from the master's database; the monitor reads again for itself.
ActInfo mactinfo;
// What the heartbeat read from the slave's database.
ActInfo sactinfo;
// Raised by the slave and member heartbeats, cleared by the cycle loop after its pull.
int Tplsync = 0;

int UpdateCluster(int full) {
  switch (ClustRole) {
    case kRoleMaster:
      return UpdateMaster(full);
    case kRoleSlave:
      return UpdateSlave(full);
    case kRoleMember:
      return UpdateMember(full);
    default:
      std::puts("Unknown Role error!");
      LogError("updatecluster(1) unknown role error!\n");
      return kHeartbeatStopped;
  }
}

void FillOwnRecord(const char* containersOf) {
  Timemill = getqortimemill();
  char host[128] = {};
  gethostname(host, sizeof host - 1);
  Clust.hostname.set(host);
  // An interface without an IPv4 address leaves the address the row last carried.
  getifaddress(Clust.ipaddress, cnf.netif.c_str());
  Clust.clusterid.set(cnf.clustid);
  Clust.role.set(cnf.clustrole);
  Containers = getcontainers(containersOf);
  Clust.containers = Containers;
  GetCpuData();
  GetQorconf();
  Clust.cpuinfo.set(Cpu.model);
  Clust.cpus = Cpu.cpus;
  Clust.cpuphycores = Cpu.phycores;
  Clust.cpucores = Cpu.cores;
  Clust.cpuprocs = Cpu.procs;
  Clust.cpuloadavg = static_cast<double>(Cpu.loadavg);
  Clust.cpuloadavgpp = static_cast<double>(Cpu.loadavgpp);
}

bool GuardInsert(const char* op, int step) {
  if (InsertAllowed(ClustCount)) return true;
  LogError("%s(%d): not insert because clustcount=%d is over!\n", op, step, ClustCount);
  return false;
}

}  // namespace qor
