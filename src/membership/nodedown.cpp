#include "membership/nodedown.h"

#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "base/clock.h"
#include "base/log.h"
#include "base/paths.h"
#include "config/qorconf.h"
#include "membership/takeover_queue.h"
#include "net/ping.h"
#include "store/cluster_query.h"
#include "store/cluster_writes.h"
#include "store/pools.h"

namespace qor {

namespace {

void LogDown(const char* who, const ClustRecord& r) {
  LogError(
      "%s detected %s(%s) down[id:%d role:%s status=%d lastwritemill:%ld tplupdatemill:%ld "
      "tplsyncmill:%ld tplsyncstate:%d cpuloadavg:%.2f cpuloadavgpp:%.2f containers:%d "
      "cpuutil:%.2f memutil:%.2f updated_at:%ld qortimemill:%ld] and run qordown.sh",
      who, r.hostname.c_str(), r.ipaddress.c_str(), r.id, r.role.c_str(), r.status,
      static_cast<long>(r.last_writemill), static_cast<long>(r.tpl_updatemill),
      static_cast<long>(r.tpl_syncmill), r.tpl_syncstate, r.cpuloadavg, r.cpuloadavgpp,
      r.containers, r.cpuutil, r.memutil, static_cast<long>(r.updated_at),
      static_cast<long>(r.qortimemill));
}

}  // namespace

void Qordown(TakeoverQueue& queue, const ClustRecord& r) {
  int64_t now = MonotonicMill();
  if (queue.Knows(r.hostname.c_str()) && !queue.Holds(r.hostname.c_str())) {
    LogNotice("qordown.sh for %s(%s) queued already", r.hostname.c_str(), r.ipaddress.c_str());
    return;
  }
  // Browser containers move only from the peer: a dead member's sessions are the take-over
  // script's business.
  if (ClustRole == kRoleMaster) {
    LogDown("MASTER", r);
    if (r.ipaddress == cnf.clustslave.c_str()) {
      LumoBRContainerRepaireSql(r.ipaddress.c_str(), cnf.clustmaster.c_str());
    }
  } else if (ClustRole == kRoleSlave) {
    LogDown("SLAVE", r);
    if (r.ipaddress == cnf.clustmaster.c_str()) {
      LumoBRContainerRepaireSql(r.ipaddress.c_str(), cnf.clustslave.c_str());
    }
  }
  // The script learns nothing from us. It runs beside the cycle: one that took the cycle's time
  // would stop this server's heartbeat, and the peer would take a live server over. It is never
  // killed for taking long, and it runs in a session of its own. The queue is recorded on disk,
  // so a restarted daemon waits for a script still running, runs what was waiting, and runs
  // again a script that its daemon's end cut.
  queue.Add(r.hostname.c_str(), r.ipaddress.c_str(), now);
  queue.Advance(now);
}

void UseQordownRecord(TakeoverQueue& queue) {
  // The directory the package makes; made here too for a daemon installed by hand.
  if (mkdir(kStateDir, 0755) != 0 && errno != EEXIST) {
    LogError("takeover record: %s cannot be made, the queue is kept in memory", kStateDir);
    return;
  }
  queue.UseRecord(kTakeoverRecord, MonotonicMill());
}

void AdvanceQordown(TakeoverQueue& queue) {
  queue.Advance(MonotonicMill());
}

void WaitQordown(TakeoverQueue& queue) {
  queue.Drain();
}

int LumoBRContainerRepaireSql(const char* source, const char* destination) {
  Trace("_xlumobrcontainerrepairesql(1):srcipadr=%s dstipdar=%s\n", source, destination);
  SqlQuoted dst(destination), src(source);
  FixedText<640> set, where;
  SqlText sql;
  // The doubled percent signs reach the database as they stand: one formatting step only.
  if (!dst.ok() || !src.ok() || !set.format("update containers set hostname = '%s'", dst.c_str()) ||
      !where.format("where containername like 'lumobr_%%%%' and hostname = '%s'", src.c_str()) ||
      !sql.format("%s %s", set.c_str(), where.c_str())) {
    LogError("xlumobrcontainerrepairesql refused: %s (%.64s)", kSqlRefused, source);
    return kDbQueryFailed;
  }
  Trace("_xlumobrcontainerrepairesql(2):%s\n", sql.c_str());
  return ExecuteFor(PoolOfAddress(destination), sql.c_str(), "xlumobrcontainerrepairesql", "update",
                    destination);
}

void SweepCluster() {
  ActInfo sweepinfo;
  auto rows = std::make_unique<ClusterRows>();
  if (ClustRole == kRoleMaster) {
    const char* master = cnf.clustmaster.c_str();
    GetClusterSql(master, "-active_all_master_slave", &sweepinfo, *rows, Db::kMaster);
    if (sweepinfo.count == 2) {
      SweepClustersql(Db::kMaster);
      if (Ping(cnf.clustslave.c_str()) == 0) SweepClustersql(Db::kSlave);
    } else if (sweepinfo.count == 1) {
      SweepClustersql(Db::kMaster);
    } else {
      LogError("sweepcluster getclusterssql error sweepinfo.count %d.", sweepinfo.count);
    }
  } else if (ClustRole == kRoleSlave) {
    // With both active the master sweeps; the slave sweeps only what its own database sees alone.
    const char* slave = cnf.clustslave.c_str();
    GetClusterSql(slave, "-active_all_master_slave", &sweepinfo, *rows, Db::kSlave);
    if (sweepinfo.count == 1) SweepClustersql(Db::kSlave);
  }
}

}  // namespace qor
