#include "daemon/slow_pass.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/fatal.h"
#include "base/log.h"
#include "base/process.h"
#include "config/qorconf.h"
#include "housekeeping/container_rows.h"
#include "membership/heartbeat.h"
#include "membership/nodedown.h"
#include "store/cluster_query.h"
#include "store/pools.h"

namespace qor {

namespace {

const char* const kWeekdays[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

// What the pass tells the cycle. Each note is one write of less than PIPE_BUF bytes, which the
// pipe passes whole: the cycle never reads half a note.
enum NoteKind { kStep = 1, kResult = 2, kFatal = 3 };
struct Note {
  int kind = 0;
  char what[64] = {};
  int pulled = 0;
  TemplatePull pull;
  TplRecord record;
};
static_assert(sizeof(Note) <= PIPE_BUF, "a note must pass the pipe in one piece");

// The pass's end of the pipe, in the pass's process only: set when the pass starts, read by its
// notes and its exit handler.
int notesFd = -1;

void Send(const Note& n) {
  // The cycle reads every cycle; a pass never writes more than a few notes.
  while (write(notesFd, &n, sizeof n) < 0 && errno == EINTR) {
  }
}

void Step(const char* what) {
  Note n;
  n.kind = kStep;
  CopyText(n.what, sizeof n.what, what);
  Send(n);
}

// A pass ends by exit only through a local failure (fatal.h): the daemon must end as well.
void SendFatal() {
  Note n;
  n.kind = kFatal;
  Send(n);
}

void LogStart(const SlowPass& p, const LoopCounters& c, int64_t sequence) {
  time_t now = time(nullptr);
  struct tm tm;
  localtime_r(&now, &tm);
  bool masterPass = ClustRole == kRoleMaster && p.tplsync == 0;
  LogNotice(masterPass ? "master running mpool=%p spool=%p basecounter=%d checkcounter=%d "
                         "actinterval=%d clustsweep=%d datetime=%04d/%02d/%02d(%s) "
                         "%02d:%02d:%02d (%ld)"
                       : "slave/member rsync started mpool=%p spool=%p basecounter=%d "
                         "checkcounter=%d actinterval=%d clustsweep=%d "
                         "datetime=%04d/%02d/%02d(%s) %02d:%02d:%02d (%ld)",
            static_cast<void*>(mpool), static_cast<void*>(spool), c.basecounter, c.checkcounter,
            kActInterval, cnf.clustsweep, tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
            kWeekdays[tm.tm_wday % 7], tm.tm_hour, tm.tm_min, tm.tm_sec,
            static_cast<long>(sequence));
}

// The pass itself, in the child: its steps in the order the program always took them. host and
// servers: this server's name and the rows of the table, as the cycle handed them over.
[[noreturn]] void RunPass(int fd, pid_t daemon, TplRecord record, ClustText host, int servers) {
  // A daemon that dies (killed by -stop, restarted by systemd) takes its pass with it.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != daemon) LeaveAfterFork();
  SetProcessTitle("qorclustd pass");
  // The pull's result is rsync's exit status, which only a process that collects its children
  // can see.
  signal(SIGCHLD, SIG_DFL);
  OpenDaemonLogAs(static_cast<int>(daemon));
  notesFd = fd;
  std::atexit(SendFatal);
  // The daemon's pools are its own: their connections are not touched here, not even to close
  // them. The pass opens its own, quietly, as a one-shot command does.
  mpool = nullptr;
  spool = nullptr;
  ConnectionPool = 1;
  ReconnectCluster();
  Note done;
  done.kind = kResult;
  if (ClustRole != kRoleMaster) {
    const char* what =
        ClustRole == kRoleSlave ? "pull of wlist, lumobr and qortemplates" : "pull of qortemplates";
    int turn = PullTurnSeconds(ClustRole, host.c_str(), servers);
    if (turn > 0) {
      FixedText<64> waiting;
      waiting.format("%s, waiting its turn", what);
      Step(waiting.c_str());
      sleep(static_cast<unsigned>(turn));
    }
    Step(what);
    done.pull = RsyncLicWlistTpl(record, host.c_str());
    done.pulled = 1;
  }
  if (ClustRole == kRoleMaster || ClustRole == kRoleSlave) {
    Step("container-row release");
    DeleteLumoBRSql(ClustRole == kRoleMaster ? Db::kMaster : Db::kSlave);
    Step("lumobrstat -sync_all");
    SyncLumoBrProf();
    Step("lumodtstat -sync_all");
    SyncLumoDtSecret();
  }
  if (cnf.clustsweep > 0) {
    Step("sweep");
    SweepCluster();
  }
  done.record = record;
  Send(done);
  LeaveAfterFork();
}

// The pass has ended (or was stopped): its pipe closes, and the next may start.
void Ended(SlowPass& p) {
  close(p.fd);
  p.fd = -1;
  p.pid = -1;
  p.what.clear();
}

// The result of a pass that ended: what the original in-cycle pass left behind.
void Apply(SlowPass& p, const Note& n, int64_t nowMs, int& tplsync) {
  p.done = true;
  p.record = n.record;
  if (n.pulled) {
    p.LastTemplatePull = n.pull;
    if (!n.pull.ok) p.retryAtMs = nowMs + kPullRetrySeconds * 1000;
  }
  if (!(ClustRole == kRoleMaster && p.tplsync == 0)) tplsync = 0;
}

}  // namespace

int64_t SlowPassRunningMs(const SlowPass& p, int64_t nowMs) {
  return p.pid > 0 ? nowMs - p.startedMs : 0;
}

int SlowRequest(int tplsync, const SlowPass& p, int64_t nowMs) {
  return p.pid > 0 || nowMs < p.retryAtMs ? 0 : tplsync;
}

int PullTurnSeconds(int role, const char* hostname, int servers) {
  if (role != kRoleMember || servers <= 1) return 0;
  uint32_t hash = 2166136261u;
  for (const char* c = hostname; *c; ++c)
    hash = (hash ^ static_cast<unsigned char>(*c)) * 16777619u;
  return static_cast<int>(hash % static_cast<uint32_t>(servers)) * kPullSpacingSeconds;
}

void StartSlowPass(SlowPass& p, const LoopCounters& counters, int64_t* sequence,
                   const NodeState& node) {
  p.waiting = true;
  if (p.pid > 0) return;
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    LogError("slow work not started: %s", std::strerror(errno));
    return;
  }
  p.tplsync = node.Tplsync;
  LogStart(p, counters, (*sequence)++);
  std::fflush(nullptr);
  pid_t daemon = getpid();
  pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    RunPass(fds[1], daemon, p.record, node.Clust.hostname, node.ClustCount);
  }
  close(fds[1]);
  if (pid < 0) {
    close(fds[0]);
    LogError("slow work not started: %s", std::strerror(errno));
    return;
  }
  fcntl(fds[0], F_SETFL, O_NONBLOCK);
  p.pid = pid;
  p.fd = fds[0];
  p.startedMs = MonotonicMill();
  p.what.set("starting");
  p.waiting = false;
  p.done = false;
}

int CollectSlowPass(SlowPass& p, int64_t nowMs, int& tplsync) {
  if (p.pid <= 0) return 0;
  Note n;
  for (;;) {
    ssize_t got = read(p.fd, &n, sizeof n);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) break;  // nothing more for now
    if (got != static_cast<ssize_t>(sizeof n)) {
      // The end of the pipe: the pass has ended.
      if (!p.done) LogError("slow work (%s) ended without its result", p.what.c_str());
      Ended(p);
      return 0;
    }
    if (n.kind == kFatal) {
      Ended(p);
      return 1;
    }
    if (n.kind == kStep) p.what.set(n.what);
    if (n.kind == kResult) Apply(p, n, nowMs, tplsync);
  }
  if (nowMs - p.startedMs > static_cast<int64_t>(kSlowPassSeconds) * 1000) {
    kill(p.pid, SIGKILL);
    LogError("slow work (%s) did not end within %d s and was stopped", p.what.c_str(),
             kSlowPassSeconds);
    Ended(p);
  }
  return 0;
}

}  // namespace qor
