#include "cli/daemon.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "base/shell.h"
#include "support/fakes.h"

namespace qor {
namespace {

// A child that waits, bounded, to be killed.
pid_t Sleeper() {
  pid_t pid = fork();
  if (pid == 0) {
    sleep(30);
    _exit(0);
  }
  return pid;
}

// True when pid was ended by SIGKILL within the wait; a child still running is ended here and
// counts as false. A kill is sent before the stop returns, so a short wait tells a survivor.
bool KilledAndReaped(pid_t pid, int waitMs) {
  int status = 0;
  for (int i = 0; i < waitMs / 10; ++i) {
    if (waitpid(pid, &status, WNOHANG) == pid) return WIFSIGNALED(status) && WTERMSIG(status) == 9;
    usleep(10000);
  }
  kill(pid, SIGTERM);
  waitpid(pid, &status, 0);
  return false;
}

TEST(CliStopDaemon, KillsTheProcessIdThatBeginsEachLineOnly) {
  struct Case {
    const char* name;
    // {A} and {B} stand for the two children's process ids.
    std::string listing;
    std::string out;
    bool killA, killB;
  } cases[] = {
      {"two daemons",
       "  {A} ?  S<s  0:00 qorclustd -start_boot\n{B} pts/0 S 0:00 qorclustd -start\n",
       "pid={A}\npid={B}\n", true, true},
      {"no process id", "qorclustd -start\n", "pid=0\n", false, false},
      {"nothing", "", "", false, false},
      // The rest of a line longer than the buffer begins with a number: a child's process id,
      // which is no daemon and must survive.
      {"overlong line", "x" + std::string(kShellLineMax - 2, 'a') + "{B} ?\n", "pid=0\n", false,
       false},
      {"after an overlong line",
       "x qorclustd -start " + std::string(kShellLineMax, 'a') + "\n{A} qorclustd -start\n",
       "pid=0\npid={A}\n", true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    pid_t a = Sleeper(), b = Sleeper();
    ASSERT_GT(a, 0);
    ASSERT_GT(b, 0);
    auto fill = [&](std::string s) {
      for (const auto& [key, pid] : {std::pair{"{A}", a}, std::pair{"{B}", b}}) {
        for (size_t at; (at = s.find(key)) != std::string::npos;)
          s.replace(at, 3, std::to_string(pid));
      }
      return s;
    };
    qortest::FakeShell ps(fill(c.listing));
    EXPECT_EQ(qortest::StdoutOf([] { EXPECT_EQ(StopDaemon(), 0); }), fill(c.out));
    EXPECT_EQ(KilledAndReaped(a, c.killA ? 5000 : 300), c.killA);
    EXPECT_EQ(KilledAndReaped(b, c.killB ? 5000 : 300), c.killB);
  }
}

}  // namespace
}  // namespace qor
