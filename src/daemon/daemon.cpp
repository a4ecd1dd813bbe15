#include "daemon/daemon.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "base/clock.h"
#include "base/fatal.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/process.h"
#include "base/progname.h"
#include "base/shell.h"
#include "config/qorconf.h"
#include "config/qorver.h"
#include "daemon/schedule.h"
#include "daemon/slow_pass.h"
#include "housekeeping/container_rows.h"
#include "membership/heartbeat.h"
#include "membership/monitor.h"
#include "membership/nodedown.h"
#include "membership/watch.h"
#include "metrics/utilisation.h"
#include "observe/prom_metrics.h"
#include "observe/systemd_notify.h"
#include "replication/replication.h"
#include "store/cluster_query.h"
#include "store/pools.h"

namespace qor {

namespace {

// Forks; the parent leaves with 0 once beforeLeaving (when given) returns, the child goes on.
void ForkAway(void (*beforeLeaving)()) {
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) FatalExit();
  if (pid == 0) return;
  if (beforeLeaving != nullptr) beforeLeaving();
  LeaveAfterFork();
}

void Daemonise() {
  PrepareMainPidHandoff();
  ForkAway(AwaitMainPidHandoff);
  if (setsid() < 0) FatalExit();
  signal(SIGCHLD, SIG_IGN);
  signal(SIGHUP, SIG_IGN);
  ForkAway(nullptr);
  CompleteMainPidHandoff();
  umask(0);
  if (chdir("/tmp") != 0) {
    // Nothing depends on the working directory; the daemon goes on where it is.
  }
  // The pools of the start-up hold descriptors that are about to be closed: free them first, so
  // that the reconnect below builds fresh ones instead of keeping dead connections.
  CloseConnectionPool();
  close(0);
  close(1);
  close(2);
  for (long fd = sysconf(_SC_OPEN_MAX); fd >= 1; --fd) close(static_cast<int>(fd));
  // Left closed, 0 to 2 would be the next descriptors opened (the syslog socket, the database
  // connections), and the debug trace and any error text would be written into them. All are
  // closed, so the three opens take 0, 1 and 2 in turn.
  for (int fd = 0; fd <= 2; ++fd) open("/dev/null", O_RDWR);
  OpenDaemonLog();
  setpriority(PRIO_PROCESS, 0, -20);
}

// The pipeline that finds the running daemons in the process table: ps with psOptions, their
// lines, then tail (nothing, or more of the pipeline).
FixedText<96> DaemonsCommand(const char* psOptions, const char* tail) {
  FixedText<96> command;
  command.format("ps %s | grep 'qorclustd -start' | grep -v grep%s", psOptions, tail);
  return command;
}

// Runs command, each output line to f; a pipeline that cannot be started ends the process.
template <class F>
void RunOrEnd(const FixedText<96>& command, size_t lineMax, F&& f) {
  if (!RunShell(command.c_str(), lineMax, f)) FatalCommand(command.c_str());
}

// The configuration re-check of the cycle: 1 when the daemon must stop.
int Recheck(ClustRecord& own, int64_t* prevTotal, int64_t* prevIdle) {
  GetQorconf();
  if (StopsOutsideCluster(own, StopLevel::kError)) return 1;
  CheckAllRsvContainers();
  int64_t total = 0, idle = 0;
  if (GetCpuIdle(&total, &idle) == 0) {
    own.cpuutil = CpuUtilBetween(*prevTotal, *prevIdle, total, idle);
    *prevTotal = total;
    *prevIdle = idle;
  } else {
    own.cpuutil = 0.0;
  }
  own.memutil = GetMemUtil();
  own.diskutil = GetDiskUtil("/");
  return 0;
}

}  // namespace

bool StopsOutsideCluster(ClustRecord& own, StopLevel level) {
  if (CheckClustConf(CurrentSvr.c_str(), own.clusterid, own.role) == kClustConfValid) {
    return false;
  }
  const char* text = "stopped because cluster not enabled or invalid config!";
  if (level == StopLevel::kError) {
    LogError("%s", text);
  } else {
    LogNotice("%s", text);
  }
  CloseLog();
  CloseConnectionPool();
  return true;
}

int DaemonCycle(DaemonState& s) {
  int64_t start = MonotonicMicros();
  // Before the heartbeat: a pass that pulled has answered the Tplsync requests raised so far.
  NodeState& n = s.node;
  if (CollectSlowPass(s.slow, MonotonicMill(), n.Tplsync) != 0) FatalExit();
  if (ConnectionPool != 5) ConnectionPool = 5;
  ReconnectCluster();
  GetClustCount(&n.ClustCount);
  UpdateCluster(n, s.counters.form, ReadClocks().wallMill);
  NotifyHeartbeatDone();
  s.counters.form = RowForm::kShort;
  if (MonitorCluster(n, s.detector, ReadClocks()) == kMonitorDone) {
    PublishObservations(s.detector, kRunDir, kObservedFile);
  }
  AdvanceQordown(s.detector.takeovers);
  CyclePlan plan = PlanCycle(s.counters, SlowRequest(n.Tplsync, s.slow, MonotonicMill()));
  if (plan.recheck && Recheck(n.Clust, &s.prevTotal, &s.prevIdle) != 0) {
    // A cluster disabled in the file is a deliberate stop: no file may say the daemon still runs.
    if (s.metricsDir) RemoveMetrics(s.metricsDir);
    return 1;
  }
  if (plan.slow || (s.slow.waiting && s.slow.pid < 0)) {
    StartSlowPass(s.slow, s.counters, &s.sequence, n);
  }
  FinishCycle(s.counters, plan);
  ++s.cycles;
  if (s.metricsDir) {
    const Clocks now = ReadClocks();
    MetricsView v = CycleView(n, s.detector, now, MonotonicMicros() - start, s.cycles);
    if (s.startMill == 0) s.startMill = now.wallMill;
    v.startMill = s.startMill;
    v.slowWorkMs = SlowPassRunningMs(s.slow, MonotonicMill());
    v.pull = s.slow.LastTemplatePull;
    PublishMetrics(v, s.metricsDir, s.metrics);
  }
  s.lastCycleUs = MonotonicMicros() - start;
  return 0;
}

int DaemonMain(const ClustRecord& own) {
  Daemonise();
  auto daemon = std::make_unique<DaemonState>();
  DaemonState& state = *daemon;
  state.node.Clust = own;
  GetQorconf();
  LogNotice("started with actinterval=%d clustrole=%d cnf.clustcontrol=%d", kActInterval, ClustRole,
            cnf.clustcontrol);
  if (StopsOutsideCluster(state.node.Clust, StopLevel::kNotice)) {
    if (state.metricsDir) RemoveMetrics(state.metricsDir);
    return 1;
  }
  ConnectionPool = 5;
  ReconnectCluster();
  LogNotice("(cluster=%d) db cennection mpool=%p spool=%p", Cluster, static_cast<void*>(mpool),
            static_cast<void*>(spool));
  CheckAllRsvContainers();
  UseQordownRecord(state.detector.takeovers);
  GetCpuIdle(&state.prevTotal, &state.prevIdle);
  GetQorVer(state.node.Clust.qorver);
  state.node.Clust.memutil = GetMemUtil();
  state.node.Clust.diskutil = GetDiskUtil("/");
  state.counters.form = RowForm::kFull;
  for (;;) {
    if (DaemonCycle(state) != 0) return 1;
    NotifyCycleDone(state.node.ClustCount, state.lastCycleUs / 1000, state.detector.takeovers,
                    state.slow.what.c_str(), SlowPassRunningMs(state.slow, MonotonicMill()));
    sleep(static_cast<unsigned>(Interval));
  }
}

int CheckRunning(int boot) {
  if (CheckRoot() != 0) {
    std::puts("Please sudo this!");
    return 1;
  }
  if (setuid(0) != 0) {
    LogNotice("setuid failed cur_uid=%d cur_gid=%d", static_cast<int>(getuid()),
              static_cast<int>(getgid()));
    return 1;
  }
  const FixedText<96> command = DaemonsCommand("aux", " | wc -l");
  Trace("_checkrunning: cmd=%s\n", command.c_str());
  // A running daemon shows its own command line for the instant a command of its cycle is being
  // started, so one look may count a copy twice. A copy that runs is seen in every look: the
  // smallest of a few looks is the true count.
  int count = -1;
  bool alone = false;
  for (int look = 0; look < 3 && !alone; ++look) {
    if (look > 0) usleep(100000);
    char first[128] = {};
    bool got = false;
    RunOrEnd(command, sizeof first, [&](char* line) {
      if (!got) CopyText(first, sizeof first, line);
      got = true;
    });
    int seen = std::atoi(first);
    Trace("_checkrunning: result=%d, buf=%s\n", seen, first);
    if (count < 0 || seen < count) count = seen;
    alone = (boot == 1 && count == 1) || (boot == 0 && count == 2);
  }
  LogNotice("_checkrunning: boot=%d result=%d exist=%d\n", boot, count, alone ? 0 : 1);
  if (alone) return 0;
  std::printf("%s already running! (result=%d)\n", Progname, count);
  LogNotice("%s already running!\n", Progname);
  return 1;
}

int StopDaemon() {
  int lastLength = 0;
  bool atLineStart = true;
  constexpr int kMaxDaemons = 16;
  pid_t stopped[kMaxDaemons];
  int ended = 0;
  // Whole lines: a long command line read in 127-character pieces would turn the start of a
  // later piece into a process id, and that process would be killed. For the same reason the
  // rest of a line longer than the buffer is skipped.
  RunOrEnd(DaemonsCommand("ax", ""), kShellLineMax, [&](char* line) {
    bool begins = atLineStart;
    size_t length = std::strlen(line);
    atLineStart = length > 0 && line[length - 1] == '\n';
    if (!begins) return;
    // Only the space character is a blank here: the newline stays and is counted.
    char digits[kShellLineMax];
    size_t n = 0;
    for (const char* p = line; *p; ++p) {
      if (*p != ' ') digits[n++] = *p;
    }
    digits[n] = '\0';
    lastLength = static_cast<int>(n);
    int pid = std::atoi(digits);
    std::printf("pid=%d\n", pid);
    // SIGTERM, which systemd's unit takes for a deliberate stop and does not restart after.
    if (pid > 0 && kill(pid, SIGTERM) == 0 && ended < kMaxDaemons) stopped[ended++] = pid;
  });
  // The file goes once the daemons are gone, so that none of them writes it again after.
  for (int i = 0; i < ended; ++i) {
    for (int wait = 0; wait < 40 && kill(stopped[i], 0) == 0; ++wait) usleep(50000);
  }
  RemoveMetrics(kNodeExporterDir);
  LogNotice("stopped by command (%d)", lastLength);
  CloseLog();
  return 0;
}

int ShowThisProc() {
  RunOrEnd(DaemonsCommand("aux", ""), 128, [](char* line) { std::fputs(line, stdout); });
  return 0;
}

}  // namespace qor
