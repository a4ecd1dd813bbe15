// The take-over queue with real scripts that end when the test lets them, SIGCHLD ignored as in
// the daemon: after each step, the run Advance returned as ended (status, duration), the run in
// progress with the time of its last report, and how many wait.
#include "membership/takeover_queue.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>

#include "support/fakes.h"

namespace qor {
namespace {

TEST(TakeoverQueue, OneScriptAtATimeInTheOrderServersWereFoundDown) {
  auto saved = signal(SIGCHLD, SIG_IGN);
  qortest::HeldCommand held;
  TakeoverQueue queue(held.command.c_str());
  struct {
    const char* add;   // a server found down at this step
    int release;       // the status the run in progress is let end with; -1: none
    int64_t now;       // milliseconds
    const char* want;  // "host:status:ms " of the run that ended, "host@reported+waiting"
  } steps[] = {
      {"a", -1, 1000, "a@1000+0"},
      {"b", -1, 2000, "a@1000+1"},
      {"c", -1, 300999, "a@1000+2"},
      {nullptr, -1, 301000, "a@301000+2"},  // five minutes running: reported
      {nullptr, 3, 309000, "a:3:308000 b@309000+1"},
      {nullptr, 0, 310000, "b:0:1000 c@310000+0"},
      {nullptr, 0, 330000, "c:0:20000 +0"},
  };
  for (const auto& s : steps) {
    if (s.add != nullptr) queue.Add(s.add, "10.0.0.9", s.now);
    if (s.release >= 0) {
      held.Release(s.release);
      queue.Wait(20000);
    }
    std::optional<TakeoverRun> ended = queue.Advance(s.now);
    const TakeoverRun* r = queue.running();
    std::string says;
    if (ended) {
      says = std::string(ended->hostname.c_str()) + ":" + std::to_string(ended->status) + ":" +
             std::to_string(ended->endedMs - ended->startedMs) + " ";
    }
    if (r != nullptr)
      says += std::string(r->hostname.c_str()) + "@" + std::to_string(r->reportedMs);
    EXPECT_EQ(says + "+" + std::to_string(queue.waiting()), s.want);
    // Beside this process, in a session of its own.
    EXPECT_TRUE(r == nullptr || getsid(r->shell.pid) == r->shell.pid);
  }
  for (size_t i = 1; i < kTakeoverWaitMax; ++i) {
    EXPECT_TRUE(queue.Add(("m" + std::to_string(i)).c_str(), "10.0.0.8", 0));
  }
  EXPECT_FALSE(queue.Add("m1", "10.0.0.8", 0)) << "one server is never queued twice";
  EXPECT_TRUE(queue.Add("m0", "10.0.0.8", 0));
  EXPECT_FALSE(queue.Add("full", "10.0.0.8", 0));
  signal(SIGCHLD, saved);
}

// What a daemon leaves in its record is what the next one finds: held stays held, waiting runs,
// a script still running is waited for and not started twice, a script cut by the end of its
// daemon runs again first.
TEST(TakeoverQueue, ARestartedDaemonTakesOverItsPredecessorsRecord) {
  auto saved = signal(SIGCHLD, SIG_IGN);
  qortest::HeldCommand held;
  qortest::TempFile record;
  {
    TakeoverQueue before(held.command.c_str());
    before.UseRecord(record.path.c_str(), 0);
    before.Add("running", "10.0.0.1", 0);
    before.Advance(0);
    before.Add("waiting", "10.0.0.2", 0);
    before.Hold("held", "10.0.0.3", 0);
    EXPECT_FALSE(before.Hold("waiting", "10.0.0.2", 0));
  }
  TakeoverQueue after(held.command.c_str());
  after.UseRecord(record.path.c_str(), 5000);
  ASSERT_NE(after.running(), nullptr);
  EXPECT_STREQ(after.running()->hostname.c_str(), "running");
  EXPECT_TRUE(after.running()->adopted);
  EXPECT_EQ(after.waiting(), 1u);
  EXPECT_TRUE(after.Holds("held"));
  after.Advance(6000);
  EXPECT_STREQ(after.running()->hostname.c_str(), "running") << "no second script beside it";
  held.Release(0);
  bool ended = false;
  for (int i = 0; i < 100 && !ended; ++i) {
    usleep(50000);
    ended = after.Advance(7000).has_value();
  }
  ASSERT_TRUE(ended);
  ASSERT_NE(after.running(), nullptr);
  EXPECT_STREQ(after.running()->hostname.c_str(), "waiting");

  // A run recorded as started whose script is gone: cut, so it runs again before the others.
  record.Write("waiting\tb\t10.0.0.5\t-1\t0\nrunning\ta\t10.0.0.4\t999999\t77\n");
  TakeoverQueue cut(held.command.c_str());
  cut.UseRecord(record.path.c_str(), 0);
  EXPECT_EQ(cut.running(), nullptr);
  cut.Advance(0);
  ASSERT_NE(cut.running(), nullptr);
  EXPECT_STREQ(cut.running()->hostname.c_str(), "a");
  held.Release(0);
  held.Release(0);
  signal(SIGCHLD, saved);
}

}  // namespace
}  // namespace qor
