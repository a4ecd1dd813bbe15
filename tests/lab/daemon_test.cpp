// The daemon's life on each kind of host of a running cluster: a second start is refused, the
// process table lists it, -stop ends it and its row stops moving in both databases, and a fresh
// start brings a row that the others had marked inactive back to active.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

using LabDaemon = LabCluster;

// The daemons of host i as the running check counts them. A command that a daemon is starting
// shows the daemon's command line until it has replaced it, so one look may count it too: the
// fewest of three looks is the count.
int Daemons(Lab& lab, int i) {
  int fewest = 0;
  for (int look = 0; look < 3; ++look) {
    int n = std::atoi(
        lab.Shell(i, "ps aux | grep 'qorclustd -start' | grep -v grep | wc -l").out.c_str());
    fewest = look == 0 ? n : std::min(fewest, n);
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
    EXPECT_TRUE(FullMatch(ps.out, "root +[0-9]+ [^\n]*qorclustd -start_boot\n")) << ps.out;

    RunResult stop = lab_.Run(i, {"-stop"});
    EXPECT_EQ(stop.status, 0);
    EXPECT_TRUE(FullMatch(stop.out, "qorclustd daemon stopping\\.\\.\\.\npid=[0-9]+\n"))
        << stop.out;
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

    // As the others' monitors would have left it: inactive in both databases.
    std::string inactive = "update clusters set status=200 where hostname='" + name + "';";
    lab_.Sql(kMaster, inactive);
    lab_.Sql(kSlave, inactive);
    RunResult start = lab_.Run(i, {"-start_boot"});
    EXPECT_EQ(start.status, 0) << start.out << start.err;
    EXPECT_TRUE(WaitFor(10,
                        [&] {
                          return RowOf(lab_, kMaster, name).status == 100 &&
                                 RowOf(lab_, kSlave, name).status == 100;
                        }))
        << "status " << RowOf(lab_, kMaster, name).status << " / "
        << RowOf(lab_, kSlave, name).status;
    EXPECT_EQ(Daemons(lab_, i), 1);
  }
  EXPECT_TRUE(AllActive(lab_, kMaster));
  EXPECT_TRUE(AllActive(lab_, kSlave));

  // A cluster disabled in the file stops the daemon at its next re-check, as an error line.
  ASSERT_TRUE(RestartFast(lab_, kMember1));
  lab_.Shell(kMember1, "echo qor_cluster=0 >> /var/www/html/qor/.qorconf");
  EXPECT_TRUE(WaitFor(30, [&] { return Daemons(lab_, kMember1) == 0; }));
  EXPECT_TRUE(Logged(lab_, kMember1, "stopped because cluster not enabled or invalid config!"));
}

}  // namespace
}  // namespace qorlab
