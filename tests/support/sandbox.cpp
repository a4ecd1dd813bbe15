#include "support/sandbox.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>

namespace qortest {

namespace {

constexpr const char* kQorDir = "/var/www/html/qor";

[[noreturn]] void ChildFail(const char* what) {
  dprintf(2, "sandbox: %s: %s\n", what, strerror(errno));
  _exit(125);
}

void BindFile(const std::string& from, const std::string& to) {
  int fd = open(to.c_str(), O_CREAT | O_WRONLY, 0666);
  if (fd >= 0) close(fd);
  if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) != 0) ChildFail(to.c_str());
}

// A /dev of our own: the usual character devices of the host, and /dev/log as our socket.
void MakeDev(const std::string& dir) {
  std::string hostdev = dir + "/hostdev";
  mkdir(hostdev.c_str(), 0755);
  if (mount("/dev", hostdev.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) ChildFail("bind /dev");
  if (mount("tmpfs", "/dev", "tmpfs", 0, "mode=755") != 0) ChildFail("tmpfs /dev");
  for (const char* n : {"null", "zero", "full", "random", "urandom", "tty"}) {
    BindFile(hostdev + "/" + n, std::string("/dev/") + n);
  }
  symlink("/proc/self/fd", "/dev/fd");
  symlink("/proc/self/fd/0", "/dev/stdin");
  symlink("/proc/self/fd/1", "/dev/stdout");
  symlink("/proc/self/fd/2", "/dev/stderr");
  mkdir("/dev/shm", 01777);
  BindFile(dir + "/log.sock", "/dev/log");
  umount2(hostdev.c_str(), MNT_DETACH);
}

std::string StripSyslogHead(const std::string& raw) {
  // "<13>Nov 22 20:23:00 ident[pid]: text" or "<13>Nov 22 20:23:00 ident: text"
  size_t colon = raw.find(": ", raw.find('>') + 16);
  return colon == std::string::npos ? raw : raw.substr(colon + 2);
}

}  // namespace

std::string QorclustdPath() { return QORCLUSTD_PATH; }

Sandbox::Sandbox() {
  std::filesystem::create_directories(dir_.path() + "/qor");
  // The mount point must exist on the host; an empty directory is all that is left there.
  std::filesystem::create_directories(kQorDir);
}

RunResult Sandbox::Run(const std::vector<std::string>& args, const RunOptions& opts) const {
  RunResult r;
  std::string sock = dir_.path() + "/log.sock";
  unlink(sock.c_str());
  int logfd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", sock.c_str());
  if (bind(logfd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    r.err = "sandbox: cannot bind the log socket";
    close(logfd);
    return r;
  }
  chmod(sock.c_str(), 0666);

  int in[2], out[2], err[2];
  if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC)) {
    r.err = "sandbox: pipe failed";
    return r;
  }
  std::string bin = QorclustdPath();
  std::string dir = dir_.path();
  pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(err[1], 2);
    if (unshare(CLONE_NEWNS) != 0) ChildFail("unshare");
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) ChildFail("private /");
    std::string qor = dir + "/qor";
    if (mount(qor.c_str(), kQorDir, nullptr, MS_BIND, nullptr) != 0) ChildFail("bind qor");
    MakeDev(dir);
    if (opts.uid != 0 && (setgid(opts.uid) != 0 || setuid(opts.uid) != 0)) ChildFail("setuid");
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(bin.c_str()));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(bin.c_str(), argv.data());
    ChildFail("execv");
  }
  close(in[0]);
  close(out[1]);
  close(err[1]);
  if (!opts.input.empty()) {
    ssize_t n = write(in[1], opts.input.data(), opts.input.size());
    (void)n;
  }
  close(in[1]);

  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(opts.timeout_sec);
  pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  std::string* sinks[2] = {&r.out, &r.err};
  int open_fds = 2;
  while (open_fds > 0) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0) {
      kill(pid, SIGKILL);
      r.err += "sandbox: timed out";
      break;
    }
    if (poll(fds, 2, static_cast<int>(left)) < 0 && errno != EINTR) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      char buf[4096];
      ssize_t n = read(fds[i].fd, buf, sizeof buf);
      if (n > 0) {
        sinks[i]->append(buf, static_cast<size_t>(n));
      } else {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open_fds;
      }
    }
  }
  for (pollfd& f : fds) {
    if (f.fd >= 0) close(f.fd);
  }
  int wstatus = 0;
  waitpid(pid, &wstatus, 0);
  r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);

  char msg[8192];
  for (;;) {
    ssize_t n = recv(logfd, msg, sizeof msg - 1, MSG_DONTWAIT);
    if (n <= 0) break;
    std::string raw(msg, static_cast<size_t>(n));
    r.syslog_raw.push_back(raw);
    r.syslog.push_back(StripSyslogHead(raw));
  }
  close(logfd);
  unlink(sock.c_str());
  return r;
}

}  // namespace qortest
