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
#include <cstring>
#include <ctime>

#include "base/log.h"

namespace qor {

namespace {

int64_t MonotonicMs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Waits until pid has ended or the monotonic clock reaches end; false when it still runs then.
// With SIGCHLD ignored (the daemon) the system reaps the child and waitpid only says it is gone,
// so the wait itself is a poll on the process's descriptor (exitFd, -1 where the kernel has none:
// then a look every 50 ms).
bool AwaitEnd(pid_t pid, int exitFd, int64_t end) {
  for (;;) {
    pid_t r = waitpid(pid, nullptr, WNOHANG);
    if (r == pid || (r < 0 && errno == ECHILD)) return true;
    int64_t left = end - MonotonicMs();
    if (left <= 0) return false;
    pollfd p{exitFd, POLLIN, 0};
    poll(&p, exitFd >= 0 ? 1 : 0,
         static_cast<int>(exitFd >= 0 ? left : std::min<int64_t>(left, 50)));
  }
}

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

// /bin/sh -c in a process group of its own, read as popen reads it. The group is what a timeout
// kills: a script's own children may hold the pipe open after the shell itself is gone.
class ProcessRunner final : public ShellRunner {
 public:
  bool Run(const char* command, size_t lineMax, int seconds, LineSink sink) override {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    std::fflush(nullptr);
    // Spawned as popen spawns (no copy of this process lingers between fork and exec), so a
    // process listing never shows a second daemon for the instant a command starts.
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attr;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attr, 0);
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
      return false;
    }
    // Taken before the first read, while the pid is surely still this child's.
    int exitFd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    size_t limit = lineMax < kShellLineMax ? lineMax : kShellLineMax;
    Pieces pieces(limit < 2 ? 2 : limit, sink);
    int64_t end = MonotonicMs() + static_cast<int64_t>(seconds) * 1000;
    bool timedOut = false;
    for (;;) {
      int64_t left = end - MonotonicMs();
      if (left <= 0) {
        timedOut = true;
        break;
      }
      pollfd p{fds[0], POLLIN, 0};
      int r = poll(&p, 1, static_cast<int>(left));
      if (r < 0 && errno == EINTR) continue;
      if (r <= 0) continue;
      ssize_t n = read(fds[0], pieces.room(), pieces.roomSize());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      pieces.Added(static_cast<size_t>(n));
    }
    pieces.Finish();
    close(fds[0]);
    // A command may close its output long before it ends (a script that writes to a file): the
    // same bound holds for the rest of its life.
    if (timedOut || !AwaitEnd(pid, exitFd, end)) {
      kill(-pid, SIGKILL);
      kill(pid, SIGKILL);
      LogError("command did not end within %d s and was stopped: %.128s", seconds, command);
      AwaitEnd(pid, exitFd, MonotonicMs() + 1000);
    }
    if (exitFd >= 0) close(exitFd);
    return true;
  }
};

ProcessRunner real_runner;
ShellRunner* current = &real_runner;

}  // namespace

ShellRunner& CurrentShell() {
  return *current;
}
ShellRunner& PopenShell() {
  return real_runner;
}
void SetShellRunner(ShellRunner* runner) {
  current = runner ? runner : &real_runner;
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
