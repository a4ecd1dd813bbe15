// A running cluster when a member dies and the take-over script takes 40 s: the master's heartbeat
// goes on beside it, and a daemon restarted meanwhile neither starts a second script nor loses
// the one queued behind. Then the master goes silent: its link pulled, after which the slave
// watches alone and finds its own database behind (members that die meanwhile are the detector
// test's). Seen as the platform sees it: the rows of both databases, the detection lines and the
// runs of the take-over script (where the containers go is the store suite's).
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

using LabFailover = LabCluster;

TEST_F(LabFailover, LongTakeoverAndThenSlaveTakesOverFromAMasterCutOff) {
  ASSERT_TRUE(StartAndJoin());
  const LabHost &master = lab_.Info(kMaster), &slave = lab_.Info(kSlave), &m1 = lab_.Info(kMember1),
                &m2 = lab_.Info(kMember2);
  std::ofstream(lab_.Host(kMaster).dir() + "/qor/qorbin/qordown.sh", std::ios::app)
      << "sleep 40\nexit 3\n";
  ASSERT_EQ(lab_.Run(kMember1, {"-stop"}).status, 0);
  ASSERT_TRUE(WaitFor(25, [&] { return Takeovers(lab_, kMaster) == 1; }));
  // A second death queues behind the script; then the master's daemon restarts: the new one
  // waits for the script its predecessor started, and runs the queued one after it, once each.
  ASSERT_EQ(lab_.Run(kMember2, {"-stop"}).status, 0);
  ASSERT_TRUE(WaitFor(25, [&] { return Logged(lab_, kMaster, "qordown.sh for " + m2.name); }));
  ASSERT_EQ(lab_.Run(kMaster, {"-stop"}).status, 0);
  ASSERT_EQ(lab_.StartDaemon(kMaster, false).status, 0);
  const std::string ended =
      "qordown.sh for " + m1.name + "(" + m1.address + ") started by the previous daemon ended";
  for (int i = 0; i < 200 && !Logged(lab_, kMaster, ended); ++i) {
    for (int db : {kMaster, kSlave}) {
      ClusterRow r = RowOf(lab_, db, master.name);
      EXPECT_LE(r.now - r.updated_at, 8) << "the master's row in " << lab_.Info(db).name;
    }
    EXPECT_EQ(Takeovers(lab_, kMaster), 1) << "a second script beside the running one";
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
  EXPECT_TRUE(Logged(lab_, kMaster, ended));
  EXPECT_TRUE(WaitFor(5, [&] { return Takeovers(lab_, kMaster) == 2; }));
  // The second member back: the master cut off below still sees two others go silent.
  ASSERT_EQ(lab_.StartDaemon(kMember2, false).status, 0);
  EXPECT_TRUE(WaitFor(15, [&] { return RowOf(lab_, kMaster, m2.name).status == 100; }));
  EXPECT_EQ(CountLogged(lab_, kSlave, "Detected_"), 0);
  ASSERT_TRUE(lab_.Cut(kMaster));
  // A query under way fails first, then the slave's cycles take about 11 s, most of it pinging
  // the master; the master's row is found once 15 s stale.
  EXPECT_TRUE(WaitFor(45, [&] { return Takeovers(lab_, kSlave) > 0; }));
  const std::string found = master.name + "(" + master.address + ")";
  EXPECT_TRUE(Logged(lab_, kSlave, "Detected_3 that " + found));
  // Neither database was written alone: the two last writes are equal.
  EXPECT_EQ(RowOf(lab_, kSlave, master.name).status, 200);
  EXPECT_TRUE(Logged(lab_, kSlave, "SLAVE detected " + found + " down[id:"));
  EXPECT_EQ(Takeovers(lab_, kSlave), 1);

  // Alone, the slave keeps its own row active in its own database, until that database shows the
  // master's row written later than its own: then it missed writes, and declares itself old.
  EXPECT_TRUE(Moves(lab_, kSlave, slave.name, 25));
  EXPECT_EQ(RowOf(lab_, kSlave, slave.name).status, 100);
  const std::string stamp = std::to_string(NowMill());
  lab_.Sql(kSlave, "update clusters set last_writemill=" + stamp + " where role='master';");
  EXPECT_TRUE(WaitFor(30,
                      [&] {
                        ClusterRow r = RowOf(lab_, kSlave, slave.name);
                        return r.status == 300 && r.last_writemill == 0;
                      }))
      << "status " << RowOf(lab_, kSlave, slave.name).status;
  // The notice shows the two rows as the master's database held them at the last look: unstamped.
  EXPECT_TRUE(Logged(lab_, kSlave, "updateslave(14) lastwritemill -> 0 0"));
  EXPECT_TRUE(Logged(lab_, kSlave,
                     "DB_OLD_STAT_2: " + slave.name + "(" + slave.address +
                         ") is now DB_OLD_STAT(" + slave.name + ":0 < " + master.name + ":" +
                         stamp + ")"));
  // The master's database never heard of it; the master, which lost everyone with its link, holds
  // its take-overs and writes no verdict there.
  EXPECT_EQ(RowOf(lab_, kMaster, slave.name).status, 100);
}

}  // namespace
}  // namespace qorlab
