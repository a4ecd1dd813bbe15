#include "lab/ns_host.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace qorlab {

namespace {

constexpr const char* kQorDir = "/var/www/html/qor";
constexpr const char* kInstallDir = "/usr/local/sbin";

struct HolderArgs {
  std::string dir;
  std::string socket;
  HostOptions opts;
  int ready;  // write end: one byte when the host is set up, nothing on failure
};

// pid 1 of the host: sets the host up, then reaps whatever ends inside until it is killed.
int Holder(void* p) {
  auto* a = static_cast<HolderArgs*>(p);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) _exit(120);
  if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) _exit(121);
  if (!MountServerPaths(a->dir).empty()) _exit(122);
  if (!IsolateDevLog(a->dir, a->socket).empty()) _exit(123);
  if (!a->opts.hostname.empty() &&
      sethostname(a->opts.hostname.c_str(), a->opts.hostname.size()) != 0) {
    _exit(124);
  }
  if (a->opts.own_network && std::system("ip link set lo up") != 0) _exit(125);
  char one = 1;
  if (write(a->ready, &one, 1) != 1) _exit(126);
  close(a->ready);
  // The maker's output may be a pipe someone reads to its end: the host must not keep it open.
  int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int fd = 0; fd <= 2 && null >= 0; ++fd) dup2(null, fd);
  // Lives until the test kills it, reaping the orphans of the host (a daemon's forked parents)
  // as a server's init would; it never outlives the test that made it.
  for (;;) {
    if (waitpid(-1, nullptr, 0) < 0) usleep(100 * 1000);
  }
}

}  // namespace

NsHost::NsHost(const HostOptions& opts) : opts_(opts), dir_(opts.dir) {
  if (dir_.empty()) {
    tmp_ = std::make_unique<TempDir>();
    dir_ = tmp_->path();
  }
  std::filesystem::create_directories(dir_ + "/qor");
  std::filesystem::create_directories(kQorDir);
  log_ = std::make_unique<SyslogCatcher>(dir_);
  if (!log_->ok() || !CopyQorclustd(dir_)) return;
  if (!opts_.syslog_file.empty() && !log_->WriteTo(opts_.syslog_file)) return;
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) return;
  HolderArgs args{dir_, log_->path(), opts_, ready[1]};
  int flags = CLONE_NEWPID | CLONE_NEWNS | SIGCHLD;
  if (!opts_.hostname.empty()) flags |= CLONE_NEWUTS;
  if (opts_.own_network) flags |= CLONE_NEWNET;
  constexpr size_t kStack = 256 * 1024;
  std::vector<char> stack(kStack);
  pid_t pid = clone(Holder, stack.data() + kStack, flags, &args);
  close(ready[1]);
  if (pid < 0) {
    close(ready[0]);
    return;
  }
  char byte = 0;
  ssize_t n = read(ready[0], &byte, 1);
  close(ready[0]);
  if (n != 1) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return;
  }
  holder_ = pid;
  log_->StartDraining();
}

NsHost::~NsHost() {
  if (holder_ > 0) {
    kill(holder_, SIGKILL);
    waitpid(holder_, nullptr, 0);
  }
}

std::string NsHost::Write(const std::string& name, const std::string& content) const {
  std::string p = dir_ + "/qor/" + name;
  std::ofstream out(p, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  return p;
}

std::vector<std::string> NsHost::EnterPrefix() const {
  std::vector<std::string> full{"/usr/bin/nsenter", "-t", std::to_string(holder_), "-m", "-p"};
  if (!opts_.hostname.empty()) full.push_back("-u");
  if (opts_.own_network) full.push_back("-n");
  full.push_back("--");
  if (!opts_.env.empty()) {
    full.push_back("/usr/bin/env");
    full.insert(full.end(), opts_.env.begin(), opts_.env.end());
  }
  return full;
}

RunResult NsHost::Enter(const std::vector<std::string>& argv, const RunOptions& opts) {
  std::vector<std::string> full = EnterPrefix();
  full.insert(full.end(), argv.begin(), argv.end());
  RunResult r = RunProgram(full, opts);
  log_->Take(&r.syslog);
  lines_.insert(lines_.end(), r.syslog.begin(), r.syslog.end());
  return r;
}

RunResult NsHost::Run(const std::vector<std::string>& args, const RunOptions& opts) {
  std::vector<std::string> argv{kInstalledQorclustd};
  argv.insert(argv.end(), args.begin(), args.end());
  return Enter(argv, opts);
}

RunResult NsHost::Shell(const std::string& command, int timeout_sec) {
  RunOptions opts;
  opts.timeout_sec = timeout_sec;
  return Enter({"/bin/sh", "-c", command}, opts);
}

const std::vector<std::string>& NsHost::Syslog() {
  Collect();
  return lines_;
}

void NsHost::Collect() {
  if (opts_.syslog_file.empty()) {
    log_->Take(&lines_);
    return;
  }
  lines_.clear();
  std::ifstream in(opts_.syslog_file);
  std::string line;
  while (std::getline(in, line)) {
    // Each line is "date time.ms " and the datagram.
    size_t sp = line.find(' ', line.find(' ') + 1);
    lines_.push_back(SyslogText(sp == std::string::npos ? line : line.substr(sp + 1)));
  }
}

bool CopyQorclustd(const std::string& dir) {
  namespace fs = std::filesystem;
  std::error_code ec;
  fs::copy_file(QORCLUSTD_PATH, dir + "/qorclustd", fs::copy_options::overwrite_existing, ec);
  return !ec && chmod((dir + "/qorclustd").c_str(), 0755) == 0;
}

std::string MountServerPaths(const std::string& dir) {
  std::string qor = dir + "/qor";
  if (mount(qor.c_str(), kQorDir, nullptr, MS_BIND, nullptr) != 0) {
    return std::string("bind qor: ") + strerror(errno);
  }
  if (mount("tmpfs", kInstallDir, "tmpfs", 0, "mode=755") != 0) {
    return std::string("tmpfs on ") + kInstallDir + ": " + strerror(errno);
  }
  return BindFile(dir + "/qorclustd", kInstalledQorclustd);
}

RunResult RootSql(const std::string& socket, const std::string& statements) {
  RunOptions o;
  o.input = statements;
  return RunProgram(
      {"/usr/bin/mariadb", "--no-defaults", "--socket=" + socket, "-uroot", "-N", "-B", "qor"}, o);
}

}  // namespace qorlab
