// The master's cycle in steady state on a one-host cluster: work time of one cycle (top to
// sleep) over 100 cycles, the pipelines and processes each cycle starts, and the heap in use after
// 10 and after 1000 cycles driven back to back without the sleep.
// Usage: cycle_bench MASTER_ADDR SLAVE_ADDR PASSWORD   (servers prepared by bench/cycle.sh)
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/shell.h"
#include "config/cpuset.h"
#include "config/qorconf.h"
#include "cycle_counters.h"
#include "daemon/daemon.h"
#include "store/clust_record.h"
#include "store/pools.h"

namespace {

size_t HeapInUse() {
  return mallinfo2().uordblks;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: %s MASTER_ADDR SLAVE_ADDR PASSWORD\n", argv[0]);
    return 2;
  }
  char path[] = "/tmp/cycle_bench.XXXXXX";
  int fd = mkstemp(path);
  std::string conf = std::string("qor_cluster=1\nqor_clustid=bench\nqor_clustrole=master\n") +
                     "qor_clustmaster=" + argv[1] + "\nqor_clustslave=" + argv[2] +
                     "\nqor_netif=lo\nqor_dbpwd='" + argv[3] + "'\n";
  if (fd < 0 || write(fd, conf.data(), conf.size()) != static_cast<ssize_t>(conf.size())) return 1;
  close(fd);
  qor::Cnffile.set(path);
  qor::GetQorconf();
  qor::CurrentSvr.set(argv[1]);
  qor::ConnectionPool = 5;
  qor::ReconnectCluster();
  {
    // The slave's row, so that the master keeps its row in both databases.
    qor::DbConn conn(qor::mpool);
    conn.Execute("delete from clusters;");
    conn.Execute(
        "insert into clusters (hostname,ipaddress,clusterid,role,role_id,status) "
        "values ('benchslave','127.0.0.4','bench','slave','101','100');");
    qor::DbConn(qor::spool).Execute("delete from clusters;");
  }
  qorbench::CountingShell shell;
  qor::SetShellRunner(&shell);
  qor::DaemonState state;
  // On this machine's own namespace: its exporter's directory is not the bench's to write.
  state.metricsDir = nullptr;
  state.counters.form = qor::RowForm::kFull;
  for (int i = 0; i < 10; ++i) qor::DaemonCycle(state);
  size_t heap10 = HeapInUse();

  std::vector<double> ms;
  long commands0 = shell.pipelines, pid0 = qorbench::LastPid();
  for (int i = 0; i < 100; ++i) {
    auto t0 = std::chrono::steady_clock::now();
    qor::DaemonCycle(state);
    ms.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
  }
  double commands = static_cast<double>(shell.pipelines - commands0) / 100;
  double processes = static_cast<double>(qorbench::LastPid() - pid0) / 100;
  for (int i = 110; i < 1000; ++i) qor::DaemonCycle(state);
  size_t heap1000 = HeapInUse();

  std::sort(ms.begin(), ms.end());
  std::printf("master cycle work time over 100 cycles: median %.1f ms, max %.1f ms\n",
              ms[ms.size() / 2], ms.back());
  std::printf("per cycle: %.2f pipelines started, %.1f processes spawned (pid counter)\n", commands,
              processes);
  std::printf("heap in use: after 10 cycles %zu bytes, after 1000 cycles %zu bytes\n", heap10,
              heap1000);
  qor::SetShellRunner(nullptr);
  qor::CloseConnectionPool();
  unlink(path);
  return 0;
}
