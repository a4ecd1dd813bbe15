// qorlab: the cluster lab for operators.
//
//   qorlab demo [--dir D] [--every S]  lab up, daemons started, `qorclustd -l` from the master
//                                      every S seconds (5) until Ctrl-C or SIGTERM; then all
//                                      torn down
//   qorlab up [--dir D]                the same lab kept up by a background process, then returns
//     --members N                      N members (2; 1 to 62) besides the master and the slave
//     --fast                           each cycle's pause cut to a twentieth: re-checks every few
//                                      seconds, slow work (pulls, sweeps) every half minute
//     --nice-members N                 the members' daemons at niceness N (0), so that on a
//                                      crowded machine the master and the slave keep the
//                                      processors they would have as servers of their own
//   qorlab down [--dir D]              ends the background process, which tears the lab down
//   qorlab run HOST CMD [ARGS..]       CMD inside HOST (its name, role or number); qorclustd is on
//                                      the PATH there, and D is at /run/lab
//   qorlab cut HOST | restore HOST     pulls or plugs HOST's link at the bridge
//
// The lab's state (the keeper's pid, the namespace holders' pids) is in D/lab.state. Needs root.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lab/cluster_view.h"
#include "lab/lab.h"

namespace {

using qorlab::Lab;

volatile sig_atomic_t g_stop = 0;

void OnStop(int) {
  g_stop = 1;
}

void CatchStopSignals() {
  struct sigaction sa {};
  sa.sa_handler = OnStop;
  sigemptyset(&sa.sa_mask);
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &sa, nullptr);
}

double Since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

std::string Self() {
  std::error_code ec;
  return std::filesystem::read_symlink("/proc/self/exe", ec).string();
}

// One line per host and the keeper's and bridge holder's pids, for run, cut and down.
void WriteState(const Lab& lab, const std::string& file) {
  std::ofstream out(file + ".new");
  std::vector<pid_t> holders = lab.Holders();
  out << "keeper " << getpid() << "\nbridge " << holders.at(0) << "\n";
  for (int i = 0; i < lab.size(); ++i) {
    const qorlab::LabHost& h = lab.Info(i);
    out << "host " << i << " " << h.name << " " << h.role << " " << h.address << " "
        << holders.at(i + 1) << "\n";
  }
  out.close();
  std::filesystem::rename(file + ".new", file);
}

struct StateHost {
  int index;
  std::string name, role, address;
  pid_t holder;
};

struct State {
  pid_t keeper = -1, bridge = -1;
  std::vector<StateHost> hosts;
};

State ReadState(const std::string& dir) {
  State s;
  std::ifstream in(dir + "/lab.state");
  for (std::string line; std::getline(in, line);) {
    std::istringstream l(line);
    std::string kind;
    l >> kind;
    if (kind == "keeper") l >> s.keeper;
    if (kind == "bridge") l >> s.bridge;
    if (kind == "host") {
      StateHost h;
      l >> h.index >> h.name >> h.role >> h.address >> h.holder;
      s.hosts.push_back(h);
    }
  }
  return s;
}

// A host by name, role ("master", "slave", "member1" ...) or number.
const StateHost* FindHost(const State& s, const std::string& which) {
  int members = 0;
  for (const StateHost& h : s.hosts) {
    if (h.role == "member") ++members;
    std::string label = h.role == "member" ? "member" + std::to_string(members) : h.role;
    if (which == h.name || which == label || which == std::to_string(h.index)) return &h;
  }
  return nullptr;
}

// True while pid runs this program: a pid from an old state file may have been reused.
// A keeper started before this program was built again runs the replaced file, which the kernel
// names with " (deleted)" after its path: it is still the keeper of its lab.
bool IsKeeper(pid_t pid) {
  std::error_code ec;
  std::string exe = std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", ec);
  const std::string replaced = " (deleted)";
  if (exe.size() > replaced.size() && exe.ends_with(replaced))
    exe.resize(exe.size() - replaced.size());
  return pid > 0 && exe == Self();
}

void PrintHosts(const Lab& lab) {
  for (int i = 0; i < lab.size(); ++i) {
    std::printf("  %-12s %-7s %-12s syslog: %s\n", lab.Info(i).name.c_str(),
                lab.Info(i).role.c_str(), lab.Info(i).address.c_str(), lab.SyslogPath(i).c_str());
  }
}

// A number from a "Name:  value" line of /proc/PID/status; 0 when there is none.
long StatusValue(pid_t pid, const std::string& name) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, name.size() + 1, name + ":") == 0)
      return std::atol(line.c_str() + name.size() + 1);
  }
  return 0;
}

long CountEntries(const std::string& dir) {
  std::error_code ec;
  auto it = std::filesystem::directory_iterator(dir, ec);
  return ec ? 0 : std::distance(it, std::filesystem::directory_iterator());
}

// What the hosts cost this machine beyond what runs inside them: each host's pid 1 (its memory of
// its own, the pages it shares with this program left out), and this program's threads and open
// descriptors (mostly a syslog catcher per host).
void PrintCost(const Lab& lab) {
  std::vector<pid_t> holders = lab.Holders();
  long own = 0;
  for (pid_t pid : holders) own += StatusValue(pid, "RssAnon");
  std::printf(
      "the lab costs this machine: %zu namespace holders (the bridge's, then one per host) "
      "with %ld KiB of memory of their own in all; %ld threads and %ld open descriptors "
      "in qorlab\n",
      holders.size(), own, StatusValue(getpid(), "Threads"), CountEntries("/proc/self/fd"));
}

// How long the bring-up waits for the daemons to fill both databases: a few cycles.
constexpr int kJoinSeconds = 30;

// Brings the lab up with a daemon on every host; false (after reporting) when it could not.
bool BringUp(Lab& lab) {
  auto t0 = std::chrono::steady_clock::now();
  std::printf("bringing up the lab in %s ...\n", lab.dir().c_str());
  std::fflush(stdout);
  std::string err = lab.Up();
  double up = Since(t0);
  if (err.empty()) err = lab.StartDaemons();
  if (!err.empty()) {
    std::fprintf(stderr, "qorlab: %s\n", err.c_str());
    lab.Down();
    return false;
  }
  double started = Since(t0);
  std::printf("lab up in %.1f s, qorclustd -start_boot on every host %.1f s later", up,
              started - up);
  std::fflush(stdout);
  // The cluster is ready once both databases hold every host's row, active. A lab that does not
  // get there is still shown: what is missing is what an operator wants to look at.
  std::string missing;
  bool joined = qorlab::WaitFor(kJoinSeconds, [&] {
    missing =
        qorlab::NotAllActive(lab, qorlab::kMaster) + qorlab::NotAllActive(lab, qorlab::kSlave);
    return missing.empty();
  });
  if (joined) {
    std::printf(", every row active in both databases %.1f s later:\n", Since(t0) - started);
  } else {
    std::printf(";\nnot every row is active in both databases after %d s: %s\n", kJoinSeconds,
                missing.c_str());
  }
  PrintHosts(lab);
  PrintCost(lab);
  return true;
}

void TearDown(Lab& lab) {
  auto t0 = std::chrono::steady_clock::now();
  lab.Down();
  std::printf("lab down in %.1f s; the syslog files stay in %s/logs\n", Since(t0),
              lab.dir().c_str());
}

void Nap(int seconds) {
  for (int i = 0; i < seconds * 10 && !g_stop; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

int Demo(Lab& lab, int every) {
  CatchStopSignals();
  if (!BringUp(lab)) return 1;
  WriteState(lab, lab.dir() + "/lab.state");
  std::printf("\nthe two-database listing from the master every %d s; Ctrl-C ends the demo\n",
              every);
  while (!g_stop) {
    qorlab::RunResult r = lab.Run(0, {"-l"});
    time_t now = time(nullptr);
    char when[32];
    strftime(when, sizeof when, "%H:%M:%S", localtime(&now));
    std::printf("\n== %s  qor-master$ qorclustd -l\n%s%s", when, r.out.c_str(), r.err.c_str());
    std::fflush(stdout);
    Nap(every);
  }
  std::printf("\nstopping ...\n");
  std::filesystem::remove(lab.dir() + "/lab.state");
  TearDown(lab);
  return 0;
}

// The commands that reach a kept lab: README's script for the default lab of this build, this
// program itself for a lab elsewhere.
struct HowTo {
  std::string on, cut, restore, down;
};

// A path as one word of a shell command line.
std::string ShellQuoted(const std::string& path) {
  if (path.find_first_not_of(
          "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-") ==
      std::string::npos) {
    return path;
  }
  std::string quoted = "'";
  for (char c : path) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

HowTo CommandsFor(const Lab& lab) {
  std::string build = std::filesystem::path(QOR_LAB_DIR).parent_path();
  if (lab.dir() == QOR_LAB_DIR) {
    std::string env = build == std::string(QOR_SOURCE_DIR) + "/build"
                          ? ""
                          : "QOR_BUILD_DIR=" + ShellQuoted(build) + " ";
    std::string script =
        env + "bash " + ShellQuoted(std::string(QOR_SOURCE_DIR) + "/scripts/demo.sh") + " ";
    return {script + "--on", script + "--cut", script + "--restore", script + "--down"};
  }
  std::string self = ShellQuoted(Self()) + " --dir " + ShellQuoted(lab.dir()) + " ";
  return {self + "run", self + "cut", self + "restore", self + "down"};
}

void PrintHowTo(const Lab& lab) {
  HowTo h = CommandsFor(lab);
  const char* on = h.on.c_str();
  std::printf(
      "\nRun a command on a host (its name, its role as master, slave, member1, member2, or its\n"
      "number); qorclustd is on the host's PATH:\n"
      "  %s master qorclustd -l\n"
      "  %s slave qorclustd -lf\n"
      "  %s member1 qorclustd -members\n"
      "  %s master qorclustd -target\n"
      "  %s master ps aux\n"
      "Kill a host's daemon (either way), then start it again:\n"
      "  %s member2 qorclustd -stop\n"
      "  %s member2 sh -c 'kill -9 $(pgrep -f \"qorclustd -start\")'\n"
      "  %s member2 qorclustd -start_boot\n"
      "Pull a host's link and plug it back:\n"
      "  %s slave\n"
      "  %s slave\n"
      "Tear the lab down:\n"
      "  %s\n",
      on, on, on, on, on, on, on, on, h.cut.c_str(), h.restore.c_str(), h.down.c_str());
}

// The keeper: brings the lab up in a session of its own, tells the waiting parent how it went
// through the pipe, then holds the lab until SIGTERM.
int RunKeeper(Lab& lab, int report) {
  setsid();
  CatchStopSignals();
  int status = 1;
  if (BringUp(lab)) {
    WriteState(lab, lab.dir() + "/lab.state");
    PrintHowTo(lab);
    status = 0;
  }
  std::fflush(stdout);
  std::fflush(stderr);
  char byte = static_cast<char>(status);
  if (write(report, &byte, 1) != 1) g_stop = 1;
  close(report);
  if (status != 0) return status;
  int null = open("/dev/null", O_RDWR);
  dup2(null, 0);
  dup2(null, 1);
  dup2(null, 2);
  while (!g_stop) pause();
  lab.Down();
  std::filesystem::remove(lab.dir() + "/lab.state");
  return 0;
}

int Up(Lab& lab) {
  int pipefd[2];
  if (pipe(pipefd) != 0) return 1;
  std::fflush(stdout);
  pid_t pid = fork();
  if (pid == 0) {
    close(pipefd[0]);
    _exit(RunKeeper(lab, pipefd[1]));
  }
  close(pipefd[1]);
  char byte = 1;
  ssize_t n = read(pipefd[0], &byte, 1);
  close(pipefd[0]);
  if (n != 1 || byte != 0) {
    waitpid(pid, nullptr, 0);
    return 1;
  }
  return 0;
}

int Down(const std::string& dir) {
  State s = ReadState(dir);
  if (!IsKeeper(s.keeper)) {
    std::printf("no lab is up in %s\n", dir.c_str());
    return 0;
  }
  auto t0 = std::chrono::steady_clock::now();
  kill(s.keeper, SIGTERM);
  for (int i = 0; i < 600 && IsKeeper(s.keeper); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  if (IsKeeper(s.keeper)) {
    std::fprintf(stderr, "qorlab: the lab's keeper (pid %d) did not end in 60 s\n", s.keeper);
    return 1;
  }
  std::printf("lab down in %.1f s; the syslog files stay in %s/logs\n", Since(t0), dir.c_str());
  return 0;
}

// The host which of the lab that is up in dir; nullptr (after saying so) when there is none.
const StateHost* UpHost(const std::string& dir, const std::string& which, State* s) {
  *s = ReadState(dir);
  const StateHost* h = IsKeeper(s->keeper) ? FindHost(*s, which) : nullptr;
  if (h == nullptr) {
    std::fprintf(stderr, "qorlab: no host %s in a lab that is up in %s\n", which.c_str(),
                 dir.c_str());
  }
  return h;
}

int RunOn(const std::string& dir, const std::string& which, char** argv) {
  State s;
  const StateHost* h = UpHost(dir, which, &s);
  if (h == nullptr) return 2;
  std::vector<std::string> args{"/usr/bin/nsenter",
                                "-t",
                                std::to_string(h->holder),
                                "-m",
                                "-p",
                                "-u",
                                "-n",
                                "--",
                                "/usr/bin/env",
                                std::string("PATH=") + qorlab::kLabPath,
                                "HOME=/root"};
  for (char** a = argv; *a; ++a) args.push_back(*a);
  std::vector<char*> c;
  for (std::string& a : args) c.push_back(a.data());
  c.push_back(nullptr);
  execv(c[0], c.data());
  std::perror("qorlab: nsenter");
  return 2;
}

int Link(const std::string& dir, const std::string& which, bool up) {
  State s;
  const StateHost* h = UpHost(dir, which, &s);
  if (h == nullptr) return 2;
  std::string err = qorlab::SetLink(s.bridge, h->index, up);
  if (!err.empty()) std::fprintf(stderr, "qorlab: %s\n", err.c_str());
  std::printf("%s: link %s\n", h->name.c_str(), up ? "up" : "down");
  return err.empty() ? 0 : 1;
}

int Usage() {
  std::fprintf(stderr,
               "usage: qorlab demo [--dir D] [--every S] [--members N] [--fast] | down [--dir D]\n"
               "       qorlab up [--dir D] [--members N] [--fast] [--nice-members N]\n"
               "       qorlab [--dir D] run HOST CMD [ARGS..] | cut HOST | restore HOST\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::string dir = QOR_LAB_DIR;
  int every = 5;
  qorlab::LabOptions opts;
  std::vector<char*> words;
  int i = 1;
  for (; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--dir" && i + 1 < argc) {
      dir = argv[++i];
    } else if (a == "--every" && i + 1 < argc) {
      every = std::max(1, std::atoi(argv[++i]));
    } else if (a == "--members" && i + 1 < argc) {
      // Up to 62 members: with the master and the slave, the 64 rows the table holds.
      int members = std::atoi(argv[++i]);
      if (members < 1 || members > 62) return Usage();
      opts.hosts = members + 2;
    } else if (a == "--fast") {
      opts.fast = true;
    } else if (a == "--nice-members" && i + 1 < argc) {
      opts.member_nice = std::clamp(std::atoi(argv[++i]), -20, 19);
    } else {
      words.push_back(argv[i]);
      // Everything after the host of run belongs to the command.
      if (words.size() == 2 && std::string(words[0]) == "run") break;
    }
  }
  if (words.empty()) return Usage();
  std::string cmd = words[0];
  setvbuf(stdout, nullptr, _IOLBF, 0);
  if (cmd == "run" && words.size() == 2 && i + 1 < argc) return RunOn(dir, words[1], argv + i + 1);
  if ((cmd == "cut" || cmd == "restore") && words.size() == 2) {
    return Link(dir, words[1], cmd == "restore");
  }
  if (cmd == "down" && words.size() == 1) return Down(dir);
  if ((cmd == "demo" || cmd == "up") && words.size() == 1) {
    if (IsKeeper(ReadState(dir).keeper)) {
      std::fprintf(stderr, "qorlab: a lab is already up in %s; qorlab down first\n", dir.c_str());
      return 1;
    }
    opts.dir = dir;
    Lab lab(opts);
    return cmd == "demo" ? Demo(lab, every) : Up(lab);
  }
  return Usage();
}
