// The daemon's life on each kind of host of a running cluster: a second start is refused, the
// process table lists it, -stop ends it and its row stops moving in both databases, a fresh start
// runs it again, and a cluster disabled in the file stops it.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

using LabDaemon = LabCluster;

// The daemons of host i. A command that a daemon is starting shows the daemon's name until it
// has replaced it, so one look may count it too: the fewest of three looks is the count. The
// bracket keeps the shell that runs pgrep out of its own count.
int Daemons(Lab& lab, int i) {
  int fewest = 1 << 20;
  for (int look = 0; look < 3; ++look) {
    fewest =
        std::min(fewest, std::atoi(lab.Shell(i, "pgrep -c -f '[q]orclustd -start'").out.c_str()));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return fewest;
}

TEST_F(LabDaemon, RefusedTwiceListedStoppedAndRestartedOnEveryRole) {
  ASSERT_TRUE(StartAndJoin());
  for (int i : {kMember1, kSlave, kMaster}) {
    const std::string& name = lab_.Info(i).name;
    SCOPED_TRACE(name);
    RunResult again = lab_.Run(i, {"-start_boot"});
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(again.out, "qorclustd already running! (result=2)\n");

    RunResult ps = lab_.Run(i, {"-ps"});
    EXPECT_EQ(ps.status, 0);
    // Its own daemon only: one line, whatever runs on the other hosts.
    EXPECT_THAT(ps.out, ::testing::MatchesRegex("root +[0-9]+ [^\n]*qorclustd -start_boot\n"));

    RunResult stop = lab_.Run(i, {"-stop"});
    EXPECT_EQ(stop.status, 0);
    EXPECT_THAT(stop.out,
                ::testing::MatchesRegex("qorclustd daemon stopping\\.\\.\\.\npid=[0-9]+\n"));
    ASSERT_TRUE(WaitFor(5, [&] { return Daemons(lab_, i) == 0; }));
    for (int other = 0; other < lab_.size(); ++other) {
      if (other == i) continue;
      EXPECT_EQ(Daemons(lab_, other), 1) << lab_.Info(other).name;
    }

    // A write may still be on its way when the process dies: the row is still from then on.
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ClusterRow m0 = RowOf(lab_, kMaster, name), s0 = RowOf(lab_, kSlave, name);
    std::this_thread::sleep_for(std::chrono::seconds(4));
    EXPECT_EQ(RowOf(lab_, kMaster, name).updated_at, m0.updated_at) << "still moving";
    EXPECT_EQ(RowOf(lab_, kSlave, name).updated_at, s0.updated_at) << "still moving";

    RunResult start = lab_.Run(i, {"-start_boot"});
    EXPECT_EQ(start.status, 0) << start.out << start.err;
    EXPECT_EQ(Daemons(lab_, i), 1);
  }

  // A cluster disabled in the file stops the daemon at its next re-check, as an error line.
  ASSERT_EQ(lab_.Run(kMember1, {"-stop"}).status, 0);
  ASSERT_EQ(lab_.StartDaemon(kMember1, true).status, 0);
  // A restart's first write is a full one: it carries the version read at start-up.
  WaitFor(10, [&] { return !RowOf(lab_, kMaster, "qor-member1").qorver.empty(); });
  EXPECT_EQ(RowOf(lab_, kMaster, "qor-member1").qorver, kLabVersion);
  lab_.Shell(kMember1, "echo qor_cluster=0 >> /var/www/html/qor/.qorconf");
  EXPECT_TRUE(WaitFor(30, [&] { return Daemons(lab_, kMember1) == 0; }));
  EXPECT_TRUE(Logged(lab_, kMember1, "stopped because cluster not enabled or invalid config!"));
}

}  // namespace
}  // namespace qorlab
