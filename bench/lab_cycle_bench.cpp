// One host's daemon cycle in the running lab, measured in place of that host's daemon while the
// other hosts' daemons run: the work time of each cycle (top to sleep) and its length (top to
// top, the daemon's own 2-second sleep included), the processor time each cycle takes (its own
// and that of the commands it runs), the pipelines each cycle starts and the processes it spawns.
// The host's role comes from its configuration, as for the daemon. Processes are counted with the
// pid counter of the bench's own pid namespace (lab.sh starts it as the first process of a
// new one), read around each whole cycle: whatever the cycle starts, through the shell runner or
// not, takes a pid there, and nothing else does.
// Usage (inside a lab host whose daemon is stopped): lab_cycle_bench [CYCLES]
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "base/clock.h"
#include "base/shell.h"
#include "config/cpuset.h"
#include "config/qorconf.h"
#include "config/qorver.h"
#include "cycle_counters.h"
#include "daemon/daemon.h"
#include "daemon/schedule.h"
#include "metrics/cpuinfo.h"
#include "metrics/ifaddress.h"
#include "metrics/utilisation.h"
#include "store/clust_record.h"
#include "store/pools.h"

namespace {

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

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
  std::chrono::steady_clock::time_point top;
  int cycles = argc > 1 ? std::max(1, std::atoi(argv[1])) : 100;
  // The daemon's start-up, as far as the cycle needs it.
  qor::GetCpuinfo();
  char hostname[128] = {};
  gethostname(hostname, sizeof hostname - 1);
  if (qor::GetQorconf() != 0) {
    std::fprintf(stderr, "lab_cycle_bench: no configuration\n");
    return 1;
  }
  qor::GetIfAddress(qor::CurrentSvr, qor::cnf.netif.c_str());
  qor::ConnectionPool = 5;
  qor::DaemonState state;
  qor::ClustRecord& own = state.node.Clust;
  if (qor::CheckClustConf(qor::CurrentSvr.c_str(), own.clusterid, own.role) !=
      qor::kClustConfValid) {
    std::fprintf(stderr, "lab_cycle_bench: not a valid cluster configuration\n");
    return 1;
  }
  qor::ReconnectCluster();
  own.hostname.set(hostname);
  own.ipaddress.set(qor::CurrentSvr);
  qor::GetCpuIdle(&state.prevTotal, &state.prevIdle);
  qor::GetQorVer(own.qorver);
  own.memutil = qor::GetMemUtil();
  own.diskutil = qor::GetDiskUtil("/");
  state.counters.form = qor::RowForm::kFull;

  qorbench::CountingShell shell;
  qor::SetShellRunner(&shell);
  std::vector<double> ms, lengths, cpu;
  long processes = 0;
  for (int i = 0; i < cycles; ++i) {
    auto t0 = std::chrono::steady_clock::now();
    if (!ms.empty()) {
      lengths.push_back(std::chrono::duration<double, std::milli>(t0 - top).count());
    }
    top = t0;
    double c0 = CpuMs();
    long p0 = qorbench::LastPid();
    if (qor::DaemonCycle(state) != 0) break;
    processes += qorbench::LastPid() - p0;
    cpu.push_back(CpuMs() - c0);
    ms.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
    sleep(static_cast<unsigned>(qor::Interval));
  }
  qor::SetShellRunner(nullptr);
  qor::CloseConnectionPool();
  if (ms.empty()) return 1;
  double n = static_cast<double>(ms.size());
  double cpuSum = 0;
  for (double c : cpu) cpuSum += c;
  std::printf(
      "%s (%s): over %zu cycles: work time median %.1f ms, max %.1f ms; cycle length median "
      "%.2f s; processor time per cycle (commands included) median %.1f ms, mean %.1f ms; per "
      "cycle %.2f pipelines, %.2f processes%s\n",
      RoleName(qor::ClustRole), hostname, ms.size(), Median(ms),
      *std::max_element(ms.begin(), ms.end()), lengths.empty() ? 0.0 : Median(lengths) / 1000,
      Median(cpu), cpuSum / n, static_cast<double>(shell.pipelines) / n,
      static_cast<double>(processes) / n,
      getpid() == 1 ? "" : " (not in a pid namespace of its own: others' processes counted)");
  return 0;
}
