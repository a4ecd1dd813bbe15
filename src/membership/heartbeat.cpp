#include "membership/heartbeat.h"

#include <unistd.h>

#include <cstdio>

#include "base/clock.h"
#include "base/log.h"
#include "config/processors.h"
#include "config/qorconf.h"
#include "membership/heartbeat_decision.h"
#include "metrics/cpuinfo.h"
#include "metrics/ifaddress.h"
#include "store/cluster_query.h"
#include "store/cluster_writes.h"
#include "store/containers.h"

namespace qor {

// What the heartbeat read from the master's database; the monitor reads again for itself.
ActInfo mactinfo;
// What the heartbeat read from the slave's database.
ActInfo sactinfo;
// Raised by the slave and member heartbeats, cleared by the cycle loop after its pull.
int Tplsync = 0;

int UpdateCluster(RowForm form, int64_t nowMill) {
  switch (ClustRole) {
    case kRoleMaster:
      return UpdateMaster(form, nowMill);
    case kRoleSlave:
      return UpdateSlave(form, nowMill);
    case kRoleMember:
      return UpdateMember(form, nowMill);
    default:
      std::puts("Unknown Role error!");
      LogError("updatecluster(1) unknown role error!\n");
      return kHeartbeatStopped;
  }
}

void FillOwnRecord(const char* containersOf) {
  char host[128] = {};
  gethostname(host, sizeof host - 1);
  Clust.hostname.set(host);
  // An interface without an IPv4 address leaves the address the row last carried.
  GetIfAddress(Clust.ipaddress, cnf.netif.c_str());
  Clust.clusterid.set(cnf.clustid);
  Clust.role.set(cnf.clustrole);
  CountContainers(containersOf);
  Clust.containers = Containers;
  // Lumo browser and desktop containers do not count against the limits.
  GetCpuData(Containers, [] { return ClustRole == kRoleMember ? 0 : GetLumoContainerSql(); });
  GetQorconf();
  Clust.cpuinfo.set(Cpu.model);
  Clust.cpus = Cpu.cpus;
  Clust.cpuphycores = Cpu.phycores;
  Clust.cpucores = Cpu.cores;
  Clust.cpuprocs = Cpu.procs;
  Clust.cpuloadavg = static_cast<double>(Cpu.loadavg);
  Clust.cpuloadavgpp = static_cast<double>(Cpu.loadavgpp);
}

bool BeginHeartbeat(const HeartbeatRole& r, const char* containersOf, int64_t nowMill) {
  if (!Cluster) {
    LogNotice("%s(1) this is not cluster!", r.op);
    return false;
  }
  FillOwnRecord(containersOf);
  Trace("_x%s(2): host=%s ip=%s clusterid=%s role=%s\n", r.op, Clust.hostname.c_str(),
        Clust.ipaddress.c_str(), Clust.clusterid.c_str(), Clust.role.c_str());
  Trace("_x%s(2): cpus=%d phycores=%d cores=%d procs=%d\n", r.op, Clust.cpus, Clust.cpuphycores,
        Clust.cpucores, Clust.cpuprocs);
  Trace("_x%s(2): loadavg=%0.2f pp=%0.2f containers=%d updated=%ld\n", r.op, Clust.cpuloadavg,
        Clust.cpuloadavgpp, Clust.containers, nowMill);
  if (ClustRole != r.role) {
    std::printf("Not %s Role error!\n", r.title);
    LogError("%s(%d) not %s role error!\n", r.op, r.roleErrorStep, r.word);
    return false;
  }
  Trace("_x%s(3): host=%s clustrole=%s(%d) starting...\n", r.op, Clust.hostname.c_str(),
        cnf.clustrole.c_str(), ClustRole);
  return true;
}

bool GuardInsert(const char* op, int step) {
  if (InsertAllowed(ClustCount)) return true;
  LogError("%s(%d): not insert because clustcount=%d is over!\n", op, step, ClustCount);
  return false;
}

int InsertOwnRow(const char* op, int step, Db db, int status, int traced, int64_t nowMill) {
  if (!GuardInsert(op, step)) return kHeartbeatStopped;
  Trace("_x%s(%d): insert into %s with status=%d ...\n", op, step + 1, AddressOf(db), traced);
  Clust.status = status;
  InsertClusterSql(db, nowMill, Clust);
  return kHeartbeatDone;
}

}  // namespace qor
