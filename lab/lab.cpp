#include "lab/lab.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "lab/lab_files.h"
#include "lab/ns_host.h"
#include "lab/syslog_catcher.h"

namespace qorlab {

namespace {

namespace fs = std::filesystem;

constexpr const char* kBridge = "br0";
// Daemons started at once by StartDaemons.
constexpr int kParallelStarts = 16;

RunResult RootShell(const std::string& command, int timeout_sec = 30) {
  RunOptions opts;
  opts.timeout_sec = timeout_sec;
  return RunProgram({"/bin/sh", "-c", command}, opts);
}

std::string Failed(const std::string& what, const RunResult& r) {
  return what + " failed (status " + std::to_string(r.status) + "): " + r.out + r.err;
}

// A path of the lab's directory as every host sees it.
std::string InHost(const std::string& path) {
  return std::string(kLabDirInHost) + "/" + path;
}

// A process whose only job is to hold a network namespace: the bridge's. It dies with the thread
// that made it, so a crashed test leaves no namespace behind.
pid_t StartNetHolder() {
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) return -1;
  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid == 0) {
    // Only system calls from here: the parent may run other threads.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // An operator's Ctrl-C reaches the whole process group; the lab is taken down in order.
    for (int sig : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) signal(sig, SIG_IGN);
    if (getppid() != parent || unshare(CLONE_NEWNET) != 0) _exit(120);
    int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int fd = 0; fd <= 2 && null >= 0; ++fd) dup2(null, fd);
    char one = 1;
    if (write(ready[1], &one, 1) != 1) _exit(121);
    for (;;) pause();
  }
  close(ready[1]);
  char byte = 0;
  ssize_t n = pid > 0 ? read(ready[0], &byte, 1) : -1;
  close(ready[0]);
  if (pid > 0 && n != 1) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
  }
  return pid;
}

}  // namespace

Lab::Lab(LabOptions opts) : opts_(std::move(opts)) {}

Lab::~Lab() {
  Down();
}

std::string Lab::DbDir(int i) const {
  return opts_.dir + "/" + info_.at(i).name + "/db";
}

std::string Lab::SyslogPath(int i) const {
  return opts_.dir + "/logs/" + info_.at(i).name + ".syslog";
}

namespace {

// A directory the lab may empty: absolute, and at least two names below the root.
bool OwnDirectory(const fs::path& dir) {
  if (!dir.is_absolute()) return false;
  int names = 0;
  for (const fs::path& part : dir.lexically_normal().relative_path()) {
    if (part == "..") return false;
    if (!part.empty() && part != ".") ++names;
  }
  return names >= 2;
}

}  // namespace

std::string Lab::Up() {
  fs::path dir(opts_.dir);
  if (up()) return "the lab is already up";
  if (!OwnDirectory(dir) || opts_.hosts < 2 || opts_.hosts > 200) {
    return "a lab needs an absolute directory at least two levels down and 2 to 200 hosts";
  }
  // The longest socket path of the lab (a unix socket's path has room for 107 characters).
  if ((dir / LabHostAt(opts_.hosts - 1).name / "db/mysqld.sock").string().size() > 107) {
    return "the lab's directory " + opts_.dir + " is too long for its sockets' paths";
  }
  std::error_code ec;
  fs::remove_all(dir, ec);
  for (const char* sub : {"logs", "ssh", "tools/lab", "tools/db"}) {
    if (!ec) fs::create_directories(dir / sub, ec);
  }
  // The database servers' script and schema, copied where the hosts find them.
  for (const char* file : {"lab/testdb.sh", "db/schema.sql"}) {
    if (!ec) fs::copy_file(fs::path(QOR_SOURCE_DIR) / file, dir / "tools" / file, ec);
  }
  if (ec) return "cannot make " + opts_.dir + ": " + ec.message();
  info_.clear();
  for (int i = 0; i < opts_.hosts; ++i) info_.push_back(LabHostAt(i));
  std::string err = MakeHosts();
  if (err.empty()) err = Wire();
  if (err.empty()) err = Prepare();
  if (err.empty()) err = StartServices();
  if (!err.empty()) Down();
  return err;
}

// Every namespace is made before any service starts: the catchers' threads are still idle, so
// nothing else runs while the holders are cloned.
std::string Lab::MakeHosts() {
  bridge_ = StartNetHolder();
  if (bridge_ < 0) return "cannot make the bridge's network namespace";
  for (const LabHost& h : info_) {
    HostOptions o;
    o.hostname = h.name;
    o.own_network = true;
    o.dir = opts_.dir + "/" + h.name;
    o.syslog_file = opts_.dir + "/logs/" + h.name + ".syslog";
    o.env = {std::string("PATH=") + kLabPath, "HOME=/root"};
    if (!opts_.tz.empty()) o.env.push_back("TZ=" + opts_.tz);
    std::error_code ec;
    fs::create_directories(o.dir + "/root", ec);
    fs::create_directories(o.dir + "/prometheus/node-exporter", ec);
    fs::create_directories(o.dir + "/state", ec);
    hosts_.push_back(std::make_unique<NsHost>(o));
    if (!hosts_.back()->ok()) return "cannot make host " + h.name;
  }
  return "";
}

namespace {

std::string BridgeCmd(pid_t bridge, const std::string& command) {
  RunResult r =
      RootShell("nsenter -t " + std::to_string(bridge) + " -n -- sh -c '" + command + "' 2>&1");
  return r.status == 0 ? "" : Failed("bridge: " + command, r);
}

}  // namespace

std::string SetLink(pid_t bridge, int i, bool up) {
  return BridgeCmd(bridge, "ip link set p" + std::to_string(i) + (up ? " up" : " down"));
}

// The bridge and one veth pair per host: the host's end is eth0 inside the host, the other end
// p<i> inside the bridge's namespace; neither end ever appears in this machine's own namespace.
std::string Lab::Wire() {
  std::string err = BridgeCmd(bridge_, std::string("ip link add ") + kBridge +
                                           " type bridge && ip link set " + kBridge + " up");
  for (int i = 0; i < size() && err.empty(); ++i) {
    std::string port = "p" + std::to_string(i);
    err = BridgeCmd(bridge_, "ip link add " + port + " type veth peer name " + kLabNetif +
                                 " netns " + std::to_string(Host(i).holder()) + " && ip link set " +
                                 port + " master " + kBridge + " && ip link set " + port + " up");
    if (!err.empty()) break;
    // The hosts keep the kernel's TCP timers: a query cut off by a pulled link fails by the
    // daemon's own bound on database waits, as on a real server.
    RunResult r = Shell(i, "ip addr add " + info_[i].address + "/24 dev " + kLabNetif +
                               " && ip link set " + kLabNetif + " up");
    if (r.status != 0) err = Failed(info_[i].name + ": address", r);
  }
  return err;
}

std::string Lab::Prepare() {
  std::string ssh = opts_.dir + "/ssh";
  for (auto [comment, key] : {std::pair{"qorrun@lab", "/qorrun"}, {"lab-host", "/host_ed25519"}}) {
    RunResult r = RunProgram(
        {"/usr/bin/ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", comment, "-f", ssh + key},
        RunOptions{});
    if (r.status != 0) return Failed("ssh-keygen", r);
  }
  std::string links;
  for (const char* c : kLabStandIns) {
    links += std::string(" && ln -s /var/www/html/qor/qorbin/") + c + " /usr/local/sbin/" + c;
  }
  for (int i = 0; i < size(); ++i) {
    std::string err = WritePlatformDir(info_[i], Host(i).dir() + "/qor", ssh + "/qorrun");
    if (!err.empty()) return err;
    // Each host has its own /run, the lab's directory in it, its own root's home (ssh's
    // known_hosts) over this machine's, which may hold the checkout and so must come last, and
    // the stand-ins beside the daemon, first on its PATH, as a server would. The lab's directory
    // is the shell's $1: any characters may be in it. Where this machine has node_exporter's
    // directory, each host has its own over it, for the daemon's metrics file; where it has
    // none, no daemon writes one. Each host keeps its daemon's state (the take-over record) in a
    // directory of its own, which outlives the daemon's restarts.
    RunResult r = Host(i).Enter(
        {"/bin/sh", "-c",
         std::string("mount -t tmpfs -o mode=755 tmpfs /run && mkdir ") + kLabDirInHost +
             " && mount --bind \"$1\" " + kLabDirInHost + " && mount --bind " +
             InHost(info_[i].name + "/root") + " /root && { [ ! -d /var/lib/prometheus ] || " +
             "mount --bind " + InHost(info_[i].name + "/prometheus") + " /var/lib/prometheus; }" +
             " && mkdir -p /var/lib/qorclustd && mount --bind " + InHost(info_[i].name + "/state") +
             " /var/lib/qorclustd" + links,
         "sh", opts_.dir},
        RunOptions{});
    if (r.status != 0) return Failed(info_[i].name + ": mounts", r);
  }
  return "";
}

std::string Lab::StartServices() {
  // '*' rather than a locked password: sshd without PAM refuses a locked account even by key.
  // Another lab may be making the account at the same moment.
  RunResult user = RootShell(
      "id -u qorrun >/dev/null 2>&1 || useradd --create-home --shell /bin/sh --password '*' "
      "qorrun || id -u qorrun");
  if (user.status != 0) return Failed("useradd qorrun", user);
  // On a server the shared trees belong to www-data:docker (-chown). A master on a machine without
  // a docker group gets a group file of its own that has one; this machine's stays as it is.
  RunResult group = Shell(
      0,
      "getent group docker >/dev/null || { cp /etc/group /run/lab-group && echo \"docker:x:$(awk "
      "-F: '$3 < 60000 && $3 > m { m = $3 } END { print m + 1 }' /etc/group):\" >> /run/lab-group "
      "&& mount --bind /run/lab-group /etc/group; }");
  if (group.status != 0) return Failed("the master's docker group", group);
  // Every host must reach the master before the servers start on their addresses.
  for (int i = 1; i < size(); ++i) {
    if (!WaitFor(10, [&] { return Shell(i, "ping -c 1 -w 1 " + info_[0].address).status == 0; })) {
      return info_[i].name + " cannot reach the master over the bridge";
    }
  }
  std::string slaveDb;
  std::thread slave([&] { slaveDb = StartDatabase(1); });
  std::string masterDb = StartDatabase(0);
  slave.join();
  if (!masterDb.empty()) return masterDb;
  if (!slaveDb.empty()) return slaveDb;

  std::ofstream(opts_.dir + "/ssh/sshd_config")
      << SshdConfig(info_[0].address, InHost("ssh/host_ed25519"), "/run/lab-ssh/authorized_keys",
                    "/run/lab-ssh/sshd.pid");
  RunResult sshd = Shell(
      0, "mkdir -p -m 755 /run/sshd /run/lab-ssh && install -m 644 " + InHost("ssh/qorrun.pub") +
             " /run/lab-ssh/authorized_keys && /usr/sbin/sshd -f " + InHost("ssh/sshd_config"));
  if (sshd.status != 0) return Failed("sshd", sshd);
  return "";
}

std::string Lab::SlowPulls(int seconds) {
  // A forced command in front of the key: sshd runs it instead of rsync's server, and it starts
  // that server itself once it has waited.
  std::string forced = seconds > 0 ? "command=\"sleep " + std::to_string(seconds) +
                                         "; exec sh -c \\\"$SSH_ORIGINAL_COMMAND\\\"\" "
                                   : "";
  std::ofstream(opts_.dir + "/ssh/forced") << forced;
  RunResult r = Shell(0, "cat " + InHost("ssh/forced") + " " + InHost("ssh/qorrun.pub") +
                             " > /run/lab-ssh/authorized_keys");
  return r.status == 0 ? "" : Failed("authorized_keys", r);
}

std::string Lab::StartDatabase(int i) {
  RunOptions o;
  o.timeout_sec = 120;
  // Temporary tables are named after the server's pid, and every host's server may have the
  // same pid in its own namespace: each needs a temporary directory of its own.
  std::error_code ec;
  fs::create_directories(Host(i).dir() + "/tmp", ec);
  RunResult r = Host(i).Enter(
      {"/usr/bin/env", std::string("QOR_TEST_DBPWD=") + kLabDbPassword,
       "TMPDIR=" + InHost(info_[i].name + "/tmp"), "/bin/bash", InHost("tools/lab/testdb.sh"),
       "start", info_[i].address, InHost(info_[i].name + "/db")},
      o);
  return r.status == 0 ? "" : Failed(info_[i].name + " database", r);
}

std::string Lab::StopDatabase(int i) {
  RunOptions o;
  o.timeout_sec = 60;
  RunResult r = Host(i).Enter(
      {"/bin/bash", InHost("tools/lab/testdb.sh"), "stop", InHost(info_[i].name + "/db")}, o);
  return r.status == 0 ? "" : Failed(info_[i].name + " database stop", r);
}

std::string Lab::StallDatabase(int i, bool stall) {
  RunResult r = Shell(i, stall ? "nft add table inet labstall && nft add chain inet labstall in '{ "
                                 "type filter hook input priority 0; }' && nft add rule inet "
                                 "labstall in tcp dport 3306 drop"
                               : "nft delete table inet labstall");
  return r.status == 0 ? "" : Failed(info_[i].name + " database stall", r);
}

void Lab::Down() {
  if (hosts_.empty() && bridge_ < 0) return;
  std::error_code ec;
  for (size_t i = 0; i < hosts_.size() && opts_.keep_logs; ++i) {
    std::string logs = opts_.dir + "/logs/" + info_[i].name;
    std::string db = DbDir(static_cast<int>(i));
    for (auto [from, to] : {std::pair{hosts_[i]->dir() + "/qor/qorbin/calls.log", ".calls"},
                            {db + "/install.log", ".db-install.log"},
                            {db + "/error.log", ".db-error.log"}}) {
      fs::copy_file(from, logs + to, fs::copy_options::overwrite_existing, ec);
    }
  }
  // Killing a host's pid 1 ends everything inside; its namespaces go with their last process.
  hosts_.clear();
  if (bridge_ > 0) {
    kill(bridge_, SIGKILL);
    waitpid(bridge_, nullptr, 0);
  }
  bridge_ = -1;
  for (const auto& entry : fs::directory_iterator(opts_.dir, ec)) {
    if (!opts_.keep_logs || entry.path().filename() != "logs") fs::remove_all(entry.path(), ec);
  }
  if (!opts_.keep_logs) fs::remove_all(opts_.dir, ec);
}

std::vector<pid_t> Lab::Holders() const {
  std::vector<pid_t> pids;
  if (bridge_ > 0) pids.push_back(bridge_);
  for (const auto& h : hosts_) pids.push_back(h->holder());
  return pids;
}

RunResult Lab::Run(int i, const std::vector<std::string>& args, int timeout_sec) {
  RunOptions o;
  o.timeout_sec = timeout_sec;
  return Host(i).Run(args, o);
}

RunResult Lab::Shell(int i, const std::string& command, int timeout_sec) {
  return Host(i).Shell(command, timeout_sec);
}

std::string Lab::StartDaemons() {
  // A start waits mostly for its turn at the processors among the daemons already running, and
  // gets a share of them by its number of processes: many at a time bring 64 hosts up in seconds
  // instead of minutes. Each thread enters only the hosts it took, and nothing else touches a
  // host's state meanwhile.
  std::vector<int> status(size(), -1);
  std::atomic<int> next{0};
  auto starter = [&] {
    for (int i = next++; i < size(); i = next++) status[i] = StartDaemon(i, opts_.fast).status;
  };
  std::vector<std::thread> starters;
  for (int t = 0; t < std::min(kParallelStarts, size()); ++t) starters.emplace_back(starter);
  for (std::thread& t : starters) t.join();
  std::string refused;
  for (int i = 0; i < size(); ++i) {
    if (status[i] != 0) refused += " " + info_[i].name + "(" + std::to_string(status[i]) + ")";
  }
  return refused.empty() ? "" : "-start_boot refused on" + refused;
}

RunResult Lab::StartDaemon(int i, bool fast) {
  if (!fast) {
    // On a crowded machine a start waits its turn behind many daemons' cycles.
    RunResult r = Run(i, {"-start_boot"}, 120);
    if (r.status == 0 && info_.at(i).role == "member" && opts_.member_nice != 0) NiceDaemon(i);
    return r;
  }
  std::error_code ec;
  fs::copy_file(QOR_LAB_FAST_SLEEP, Host(i).dir() + "/qor/qorbin/lab-fast-sleep.so",
                fs::copy_options::overwrite_existing, ec);
  // The loader only warns about a preload it cannot find: the daemon would run at full pace.
  if (ec) return RunResult{1, "", "cannot copy the fast-pace library: " + ec.message(), {}};
  // A sanitizer's runtime wants to be loaded first; the preloaded library comes before it.
  return Host(i).Enter(
      {"/usr/bin/env", "LD_PRELOAD=/var/www/html/qor/qorbin/lab-fast-sleep.so",
       "ASAN_OPTIONS=verify_asan_link_order=0", kInstalledQorclustd, "-start_boot"},
      RunOptions{});
}

void Lab::SetClock(int i, const std::string& offset) {
  std::ofstream(Host(i).dir() + "/faketime") << offset << "\n";
}

RunResult Lab::StartDaemonWithClock(int i, const std::string& offset) {
  SetClock(i, offset);
  // Debian keeps the library under the architecture's directory.
  RunResult lib = Shell(i, "find /usr/lib -name libfaketime.so.1 | head -n 1");
  if (lib.status != 0 || lib.out.empty()) return RunResult{1, "", "libfaketime not found", {}};
  lib.out.pop_back();
  return Host(i).Enter(
      {"/usr/bin/env", "LD_PRELOAD=" + lib.out,
       "FAKETIME_TIMESTAMP_FILE=" + InHost(info_[i].name + "/faketime"), "FAKETIME_NO_CACHE=1",
       "FAKETIME_DONT_FAKE_MONOTONIC=1", "ASAN_OPTIONS=verify_asan_link_order=0",
       kInstalledQorclustd, "-start_boot"},
      RunOptions{});
}

// The daemon raises its own priority to the highest once it runs in a session of its own; after
// that its niceness is set to the lab's, which what it runs inherits. Where the kernel groups
// each session's processes for scheduling (autogroup), niceness counts only inside the session,
// so the session's share is set as well; without autogroup that write fails and is not needed.
void Lab::NiceDaemon(int i) {
  const std::string n = std::to_string(opts_.member_nice);
  Shell(
      i,
      "for _ in $(seq 100); do p=$(pgrep -x qorclustd) && [ \"$(ps -o ni= -p \"$p\" | tr -d ' ')\" "
      "= -20 ] && renice -n " +
          n + " -p \"$p\" >/dev/null && { echo " + n +
          " >/proc/$p/autogroup; exit 0; } 2>/dev/null; sleep 0.05; done");
}

std::vector<std::string> Lab::Syslog(int i) {
  return Host(i).Syslog();
}

std::vector<std::string> Lab::Calls(int i) const {
  std::vector<std::string> lines;
  std::ifstream in(hosts_.empty() ? opts_.dir + "/logs/" + info_.at(i).name + ".calls"
                                  : hosts_.at(i)->dir() + "/qor/qorbin/calls.log");
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::string Lab::Sql(int i, const std::string& statements, bool* ok) const {
  RunResult r = RootSql(DbDir(i) + "/mysqld.sock", statements);
  if (ok) *ok = r.status == 0;
  return r.status == 0 ? r.out : r.out + r.err;
}

bool Lab::Cut(int i) {
  return Link(i, false);
}

bool Lab::Restore(int i) {
  return Link(i, true);
}

// Each change of a link is noted, with its time, beside the hosts' syslog files.
bool Lab::Link(int i, bool up) {
  std::string err = SetLink(bridge_, i, up);
  std::ofstream(opts_.dir + "/logs/links.log", std::ios::app)
      << WallStampMs() << " " << info_.at(i).name << " link " << (up ? "up" : "down")
      << (err.empty() ? "" : " failed: " + err) << "\n";
  return err.empty();
}

}  // namespace qorlab
