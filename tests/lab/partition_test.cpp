// A running cluster when a database falls behind or a link is pulled: the master declares its
// own row old when the slave's row says the master's database missed writes; members cut off from
// the slave keep the master's database current and bring the slave's up to date when the link is
// back.
#include <gtest/gtest.h>

#include <string>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

using LabPartition = LabCluster;

TEST_F(LabPartition, MasterDeclaresItsRowOldWhenItsDatabaseIsBehind) {
  ASSERT_TRUE(StartAndJoin());
  // As the platform stamps it when it wrote into the slave's database alone.
  int64_t stamp = NowMill() + 60000;
  lab_.Sql(kMaster,
           "update clusters set last_writemill=" + std::to_string(stamp) + " where role='slave';");
  auto old = [&](int db) {
    ClusterRow r = RowOf(lab_, db, "qor-master");
    return r.status == 300 && r.last_writemill == 0;
  };
  EXPECT_TRUE(WaitFor(10, [&] { return old(kMaster) && old(kSlave); }))
      << "master row: " << RowOf(lab_, kMaster, "qor-master").status << " / "
      << RowOf(lab_, kSlave, "qor-master").status;
  EXPECT_TRUE(Logged(lab_, kMaster, "updatemaster(7) lastwritemill -> 0 " + std::to_string(stamp)));
  // Nobody else is judged: the other rows stay active.
  for (int db : {kMaster, kSlave}) {
    for (const ClusterRow& r : ReadRows(lab_, db)) {
      EXPECT_TRUE(r.role == "master" || r.status == 100) << r.hostname << " " << r.status;
    }
  }
}

TEST_F(LabPartition, MembersKeepTheMasterCurrentAndCatchUpOnTheSlave) {
  ASSERT_TRUE(StartAndJoin());
  const std::string members[] = {lab_.Info(kMember1).name, lab_.Info(kMember2).name};
  ASSERT_TRUE(lab_.Cut(kSlave));
  for (int m : {kMember1, kMember2}) {
    ASSERT_TRUE(WaitFor(
        20,
        [&] {
          return Logged(lab_, m, "Ping slave(198.18.0.2) failed in ReconnectCluster. Made spool");
        }))
        << lab_.Info(m).name << " did not notice the slave's link going";
  }
  for (const std::string& m : members) {
    EXPECT_TRUE(Moves(lab_, kMaster, m, 20)) << m << " stopped writing the master's database";
  }
  ASSERT_TRUE(lab_.Restore(kSlave));
  int64_t back = ReadRows(lab_, kSlave).at(0).now;
  for (const std::string& m : members) {
    EXPECT_TRUE(WaitFor(25,
                        [&] {
                          ClusterRow r = RowOf(lab_, kSlave, m);
                          return r.updated_at >= back && r.status == 100;
                        }))
        << m << " did not catch up on the slave's database";
  }
  // The master's monitor may find the slave's row stale once more as the link comes back and
  // mark it 200 in both databases; the slave's next heartbeat makes it active again.
  EXPECT_TRUE(WaitFor(15, [&] { return AllActive(lab_, kMaster) && AllActive(lab_, kSlave); }))
      << AllActive(lab_, kMaster).message() << " / " << AllActive(lab_, kSlave).message();
}

}  // namespace
}  // namespace qorlab
