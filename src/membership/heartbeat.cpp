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

int UpdateCluster(NodeState& n, RowForm form, int64_t nowMill) {
  switch (ClustRole) {
    case kRoleMaster:
      return UpdateMaster(n, form, nowMill);
    case kRoleSlave:
      return UpdateSlave(n, form, nowMill);
    case kRoleMember:
      return UpdateMember(n, form, nowMill);
    default:
      std::puts("Unknown Role error!");
      LogError("updatecluster(1) unknown role error!\n");
      return kHeartbeatStopped;
  }
}

void FillOwnRecord(NodeState& n, const char* containersOf) {
  ClustRecord& own = n.Clust;
  char host[128] = {};
  gethostname(host, sizeof host - 1);
  own.hostname.set(host);
  // An interface without an IPv4 address leaves the address the row last carried.
  GetIfAddress(own.ipaddress, cnf.netif.c_str());
  own.clusterid.set(cnf.clustid);
  own.role.set(cnf.clustrole);
  CountContainers(containersOf, &own.containers, &n.ContainersFailing);
  // Lumo browser and desktop containers do not count against the limits.
  GetCpuData(own.containers, [] { return ClustRole == kRoleMember ? 0 : GetLumoContainerSql(); });
  GetQorconf();
  own.cpuinfo.set(Cpu.model);
  own.cpus = Cpu.cpus;
  own.cpuphycores = Cpu.phycores;
  own.cpucores = Cpu.cores;
  own.cpuprocs = Cpu.procs;
  own.cpuloadavg = static_cast<double>(Cpu.loadavg);
  own.cpuloadavgpp = static_cast<double>(Cpu.loadavgpp);
}

bool BeginHeartbeat(NodeState& n, const HeartbeatRole& r, const char* containersOf,
                    int64_t nowMill) {
  if (!Cluster) {
    LogNotice("%s(1) this is not cluster!", r.op);
    return false;
  }
  FillOwnRecord(n, containersOf);
  Trace("_x%s(2): host=%s ip=%s clusterid=%s role=%s\n", r.op, n.Clust.hostname.c_str(),
        n.Clust.ipaddress.c_str(), n.Clust.clusterid.c_str(), n.Clust.role.c_str());
  Trace("_x%s(2): cpus=%d phycores=%d cores=%d procs=%d\n", r.op, n.Clust.cpus, n.Clust.cpuphycores,
        n.Clust.cpucores, n.Clust.cpuprocs);
  Trace("_x%s(2): loadavg=%0.2f pp=%0.2f containers=%d updated=%ld\n", r.op, n.Clust.cpuloadavg,
        n.Clust.cpuloadavgpp, n.Clust.containers, nowMill);
  if (ClustRole != r.role) {
    std::printf("Not %s Role error!\n", r.title);
    LogError("%s(%d) not %s role error!\n", r.op, r.roleErrorStep, r.word);
    return false;
  }
  Trace("_x%s(3): host=%s clustrole=%s(%d) starting...\n", r.op, n.Clust.hostname.c_str(),
        cnf.clustrole.c_str(), ClustRole);
  return true;
}

bool GuardInsert(const NodeState& n, const char* op, int step) {
  if (InsertAllowed(n.ClustCount)) return true;
  LogError("%s(%d): not insert because clustcount=%d is over!\n", op, step, n.ClustCount);
  return false;
}

int InsertOwnRow(NodeState& n, const char* op, int step, Db db, int status, int traced,
                 int64_t nowMill) {
  if (!GuardInsert(n, op, step)) return kHeartbeatStopped;
  Trace("_x%s(%d): insert into %s with status=%d ...\n", op, step + 1, AddressOf(db), traced);
  n.Clust.status = status;
  InsertClusterSql(db, nowMill, n.Clust, n.HeartbeatWrites);
  return kHeartbeatDone;
}

}  // namespace qor
