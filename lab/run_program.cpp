#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "lab/ns_host.h"

namespace qorlab {

RunResult RunInChild(const std::vector<std::string>& argv, const RunOptions& opts,
                     const std::function<void()>& inChild) {
  RunResult r;
  int in[2], out[2], err[2];
  if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC)) {
    r.err = "run: pipe failed";
    return r;
  }
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(err[1], 2);
    if (inChild) inChild();
    if (opts.uid != 0 && (setgid(opts.uid) != 0 || setuid(opts.uid) != 0)) _exit(125);
    execv(args[0], args.data());
    dprintf(2, "run: execv %s: %s\n", args[0], strerror(errno));
    _exit(125);
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
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    deadline - std::chrono::steady_clock::now())
                    .count();
    if (left <= 0) {
      kill(pid, SIGKILL);
      r.err += "run: timed out";
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
  return r;
}

RunResult RunProgram(const std::vector<std::string>& argv, const RunOptions& opts) {
  return RunInChild(argv, opts, nullptr);
}

}  // namespace qorlab
