#include "support/sandbox.h"

#include "support/syslog_catcher.h"

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

}  // namespace

std::string QorclustdPath() { return QORCLUSTD_PATH; }

Sandbox::Sandbox() {
  std::filesystem::create_directories(dir_.path() + "/qor");
  // The mount point must exist on the host; an empty directory is all that is left there.
  std::filesystem::create_directories(kQorDir);
}

RunResult Sandbox::Run(const std::vector<std::string>& args, const RunOptions& opts) const {
  RunResult r;
  SyslogCatcher log(dir_.path());
  if (!log.ok()) {
    r.err = "sandbox: cannot bind the log socket";
    return r;
  }
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
    std::string e = IsolateDevLog(dir, log.path());
    if (!e.empty()) {
      dprintf(2, "sandbox: %s\n", e.c_str());
      _exit(125);
    }
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

  log.Take(&r.syslog, &r.syslog_raw);
  return r;
}

}  // namespace qortest
