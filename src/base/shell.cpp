#include "base/shell.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/log.h"

namespace qor {

namespace {

// Delivers buffered output in fgets pieces: a line with its newline, or lineMax - 1 characters of
// a longer one; at the end of the output, whatever is left.
class Pieces {
 public:
  Pieces(size_t lineMax, LineSink sink) : max_(lineMax - 1), sink_(sink) {}
  // Room for the next read, never empty while a piece can still be delivered.
  char* room() { return buf_ + len_; }
  size_t roomSize() const { return sizeof buf_ - 1 - len_; }
  void Added(size_t n) {
    len_ += n;
    Deliver(false);
  }
  void Finish() { Deliver(true); }

 private:
  void Deliver(bool atEnd) {
    size_t start = 0;
    for (;;) {
      size_t left = len_ - start;
      if (left == 0) break;
      const char* nl = static_cast<const char*>(std::memchr(buf_ + start, '\n', left));
      size_t n = nl ? static_cast<size_t>(nl - (buf_ + start)) + 1 : left;
      if (n > max_) n = max_;
      if (!nl && n < max_ && !atEnd) break;
      char piece[kShellLineMax];
      std::memcpy(piece, buf_ + start, n);
      piece[n] = '\0';
      sink_(piece);
      start += n;
    }
    std::memmove(buf_, buf_ + start, len_ - start);
    len_ -= start;
  }

  size_t max_;
  LineSink sink_;
  char buf_[2 * kShellLineMax];
  size_t len_ = 0;
};

// /bin/sh -c command, spawned as popen spawns (no copy of this process lingers between fork and
// exec, so a process listing never shows a second daemon for the instant a command starts), with
// its standard output (and its standard error, with withErrors) on a pipe whose read end lands in
// *out. -1 when it could not be started.
pid_t SpawnShell(const char* command, short flags, int* out, bool withErrors = false) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return -1;
  std::fflush(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attr;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  if (withErrors) posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
  posix_spawnattr_init(&attr);
  posix_spawnattr_setflags(&attr, flags);
  posix_spawnattr_setpgroup(&attr, 0);
  // Taken only by a spawn whose flags include POSIX_SPAWN_SETSIGDEF.
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGCHLD);
  posix_spawnattr_setsigdefault(&attr, &defaults);
  char sh[] = "sh", dashC[] = "-c";
  char* argv[] = {sh, dashC, const_cast<char*>(command), nullptr};
  pid_t pid = -1;
  int spawned = posix_spawn(&pid, "/bin/sh", &actions, &attr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  close(fds[1]);
  if (spawned != 0) {
    close(fds[0]);
    errno = spawned;
    return -1;
  }
  *out = fds[0];
  return pid;
}

// Waits until pid has ended or the monotonic clock reaches end; false when it still runs then.
// With SIGCHLD ignored (the daemon's cycle) the system reaps the child and waitpid only says it is
// gone, so the wait itself is a poll on the process's descriptor (exitFd, -1 where the kernel has
// none: then a look every 50 ms). *status: the exit status where waitpid could collect one.
bool AwaitEnd(pid_t pid, int exitFd, int64_t end, int* status = nullptr) {
  for (;;) {
    int raw = 0;
    pid_t r = waitpid(pid, &raw, WNOHANG);
    if (r == pid && status != nullptr) *status = WIFEXITED(raw) ? WEXITSTATUS(raw) : kShellNoStatus;
    if (r == pid || (r < 0 && errno == ECHILD)) return true;
    int64_t left = end - MonotonicMill();
    if (left <= 0) return false;
    pollfd p{exitFd, POLLIN, 0};
    poll(&p, exitFd >= 0 ? 1 : 0,
         static_cast<int>(exitFd >= 0 ? left : std::min<int64_t>(left, 50)));
  }
}

// Run's pipelines go in a session (and so a process group) of their own: the group is what a
// timeout kills, since a script's own children may hold the pipe open after the shell itself is
// gone; and without a terminal, ssh refusing a key ends at once instead of asking for a password
// nobody sees.
class ProcessRunner final : public ShellRunner {
 public:
  bool Run(const char* command, size_t lineMax, int seconds, LineSink sink, int* status) override {
    int fd = -1;
    if (status != nullptr) *status = kShellNoStatus;
    pid_t pid = SpawnShell(command, POSIX_SPAWN_SETSID, &fd, status != nullptr);
    if (pid < 0) return false;
    // Taken before the first read, while the pid is surely still this child's.
    int exitFd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    size_t limit = lineMax < kShellLineMax ? lineMax : kShellLineMax;
    Pieces pieces(limit < 2 ? 2 : limit, sink);
    int64_t end = MonotonicMill() + static_cast<int64_t>(seconds) * 1000;
    bool timedOut = false;
    for (;;) {
      int64_t left = end - MonotonicMill();
      if (left <= 0) {
        timedOut = true;
        break;
      }
      pollfd p{fd, POLLIN, 0};
      int r = poll(&p, 1, static_cast<int>(left));
      if (r < 0 && errno == EINTR) continue;
      if (r <= 0) continue;
      ssize_t n = read(fd, pieces.room(), pieces.roomSize());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      pieces.Added(static_cast<size_t>(n));
    }
    pieces.Finish();
    close(fd);
    // A command may close its output long before it ends (a script that writes to a file): the
    // same bound holds for the rest of its life.
    if (timedOut || !AwaitEnd(pid, exitFd, end, status)) {
      if (status != nullptr) *status = kShellNoStatus;
      kill(-pid, SIGKILL);
      kill(pid, SIGKILL);
      LogError("command did not end within %d s and was stopped: %.128s", seconds, command);
      AwaitEnd(pid, exitFd, MonotonicMill() + 1000);
    }
    if (exitFd >= 0) close(exitFd);
    return true;
  }

  bool Start(const char* command, BackgroundShell* started) override {
    // The status comes back from the shell that runs the command, on an output the command does
    // not share: with SIGCHLD ignored (the daemon) the system reaps children and waitpid has no
    // status to give.
    FixedText<kShellLineMax> wrapped;
    if (!wrapped.format("{ %s\n} >/dev/null; echo $?", command)) return false;
    // A session of its own: nothing sent to this process's group or terminal (a Ctrl-C on a
    // one-shot command) reaches it. SIGCHLD back at its default: the command waits for what it
    // runs, which an ignored SIGCHLD inherited through exec would make fail.
    int fd = -1;
    pid_t pid = SpawnShell(wrapped.c_str(), POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF, &fd);
    if (pid < 0) return false;
    started->pid = pid;
    started->fd = fd;
    return true;
  }
};

// The runner every command goes through: the real one, unless a test set its own
// (SetShellRunner); read by RunShell.
ProcessRunner real_runner;
ShellRunner* current = &real_runner;

}  // namespace

ShellRunner& CurrentShell() {
  return *current;
}
ShellRunner& RealShell() {
  return real_runner;
}
void SetShellRunner(ShellRunner* runner) {
  current = runner ? runner : &real_runner;
}

int PollShell(BackgroundShell& shell) {
  if (shell.fd < 0) return kShellNoStatus;
  pollfd p{shell.fd, POLLIN, 0};
  if (poll(&p, 1, 0) <= 0) return kShellRunning;
  char text[16];
  ssize_t n = read(shell.fd, text, sizeof text - 1);
  if (n < 0 && errno == EINTR) return kShellRunning;
  close(shell.fd);
  shell.fd = -1;
  // Where SIGCHLD is not ignored (a one-shot command) the shell is reaped if it has exited yet;
  // one that has not is left to the system when this process ends.
  if (shell.pid > 0) waitpid(shell.pid, nullptr, WNOHANG);
  // The end of the output without a status: the shell was killed before it could write one.
  if (n <= 0 || !std::isdigit(static_cast<unsigned char>(text[0]))) return kShellNoStatus;
  text[n] = '\0';
  return std::atoi(text);
}

void WaitShell(const BackgroundShell& shell, int ms) {
  if (shell.fd < 0) return;
  pollfd p{shell.fd, POLLIN, 0};
  int64_t end = MonotonicMill() + ms;
  for (int64_t left = ms; left >= 0; left = end - MonotonicMill()) {
    if (poll(&p, 1, static_cast<int>(left)) >= 0 || errno != EINTR) return;
  }
}

bool IsShellSafeWord(const char* value) {
  // A leading '-' would be read as an option by the program the word is handed to.
  if (value == nullptr || *value == '\0' || *value == '-') return false;
  for (const char* p = value; *p; ++p) {
    unsigned char c = static_cast<unsigned char>(*p);
    if (!std::isalnum(c) && c != '.' && c != '-' && c != '_' && c != ':') return false;
  }
  return true;
}

void ChopLast(char* line) {
  size_t n = std::strlen(line);
  if (n > 0) line[n - 1] = '\0';
}

}  // namespace qor
