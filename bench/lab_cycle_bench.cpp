// One host's daemon cycle in the running lab, measured in place of that host's daemon while the
// other hosts' daemons run: the work time of each cycle (top to sleep) with the daemon's own
// 2-second sleep between cycles, the processor time each cycle takes (its own and that of the
// commands it runs), the pipelines each cycle starts and the processes they spawn.
// The host's role comes from its configuration, as for the daemon. Processes are counted with the
// pid counter of the host's own pid namespace, read around each pipeline, so that threads the
// host's database server starts in between are not counted.
// Usage (inside a lab host whose daemon is stopped): lab_cycle_bench [CYCLES]
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/shell.h"
#include "cli/daemon.h"
#include "cli/schedule.h"
#include "config/cpuset.h"
#include "config/qorconf.h"
#include "config/qorver.h"
#include "metrics/cpuinfo.h"
#include "metrics/ifaddress.h"
#include "metrics/utilisation.h"
#include "store/clust_record.h"
#include "store/pools.h"

namespace {

// The most recent process id this pid namespace handed out (last field of /proc/loadavg).
long LastPid() {
  std::ifstream in("/proc/loadavg");
  std::string a, b, c, d;
  long pid = 0;
  in >> a >> b >> c >> d >> pid;
  return pid;
}

class CountingShell : public qor::ShellRunner {
 public:
  bool Run(const char* command, size_t lineMax, int seconds, qor::LineSink sink) override {
    ++pipelines;
    long before = LastPid();
    bool ran = qor::RealShell().Run(command, lineMax, seconds, sink);
    processes += LastPid() - before;
    return ran;
  }
  bool Start(const char* command, qor::BackgroundShell* started) override {
    ++pipelines;
    long before = LastPid();
    bool ran = qor::RealShell().Start(command, started);
    processes += LastPid() - before;
    return ran;
  }
  long pipelines = 0;
  long processes = 0;
};

// Processor time used so far by this process and by its ended children, in milliseconds.
double CpuMs() {
  double ms = 0;
  for (int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage u{};
    getrusage(who, &u);
    for (const timeval& t : {u.ru_utime, u.ru_stime}) ms += t.tv_sec * 1e3 + t.tv_usec / 1e3;
  }
  return ms;
}

const char* RoleName(int role) {
  return role == qor::kRoleMaster   ? "master"
         : role == qor::kRoleSlave  ? "slave"
         : role == qor::kRoleMember ? "member"
                                    : "other";
}

}  // namespace

int main(int argc, char** argv) {
  int cycles = argc > 1 ? std::max(1, std::atoi(argv[1])) : 100;
  // The daemon's start-up, as far as the cycle needs it.
  qor::InitClusterMem();
  qor::InitCpusets();
  qor::Timemill = qor::getqortimemill();
  qor::GetCpuinfo();
  char hostname[128] = {};
  gethostname(hostname, sizeof hostname - 1);
  if (qor::GetQorconf() != 0) {
    std::fprintf(stderr, "lab_cycle_bench: no configuration\n");
    return 1;
  }
  qor::getifaddress(qor::CurrentSvr, qor::cnf.netif.c_str());
  qor::ConnectionPool = 5;
  if (qor::CheckClustConf(qor::CurrentSvr.c_str(), qor::Clust.clusterid, qor::Clust.role) !=
      qor::kClustConfValid) {
    std::fprintf(stderr, "lab_cycle_bench: not a valid cluster configuration\n");
    return 1;
  }
  qor::ReconnectCluster();
  qor::Clust.hostname.set(hostname);
  qor::Clust.ipaddress.set(qor::CurrentSvr);
  qor::DaemonState state;
  qor::getcpuidle(&state.prevTotal, &state.prevIdle);
  qor::getqorver(qor::QorVersion);
  qor::MemUtil = qor::getmemutil();
  qor::DiskUtil = qor::getdiskutil("/");
  state.counters.full = 1;

  CountingShell shell;
  qor::SetShellRunner(&shell);
  std::vector<double> ms;
  double cpu = 0;
  for (int i = 0; i < cycles; ++i) {
    auto t0 = std::chrono::steady_clock::now();
    double c0 = CpuMs();
    if (qor::DaemonCycle(state) != 0) break;
    ms.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
    cpu += CpuMs() - c0;
    sleep(static_cast<unsigned>(qor::Interval));
  }
  qor::SetShellRunner(nullptr);
  qor::CloseConnectionPool();
  if (ms.empty()) return 1;
  double n = static_cast<double>(ms.size());
  std::vector<double> sorted = ms;
  std::sort(sorted.begin(), sorted.end());
  std::printf(
      "%s (%s): cycle work time over %zu cycles: median %.1f ms, max %.1f ms; per cycle "
      "%.1f ms of processor time (commands included), %.2f pipelines, %.2f processes\n",
      RoleName(qor::ClustRole), hostname, ms.size(), sorted[sorted.size() / 2], sorted.back(),
      cpu / n, static_cast<double>(shell.pipelines) / n, static_cast<double>(shell.processes) / n);
  return 0;
}
