// Four daemons started at boot join the cluster: within 10 seconds both databases hold the four
// rows, active, with each host's role, role code, address and name, and every row keeps being
// written.
#include <gtest/gtest.h>

#include <map>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

using LabJoin = LabCluster;

std::map<std::string, int64_t> UpdatedAt(const Lab& lab, int db) {
  std::map<std::string, int64_t> at;
  for (const ClusterRow& r : ReadRows(lab, db)) at[r.hostname] = r.updated_at;
  return at;
}

TEST_F(LabJoin, FourDaemonsFillBothDatabasesWithinTenSeconds) {
  ASSERT_TRUE(StartAndJoin(10));
  // The database stamps updated_at with its clock in seconds: two looks three seconds apart
  // must see every row newer, in both databases.
  for (int db : {kMaster, kSlave}) {
    SCOPED_TRACE(lab_.Info(db).name);
    std::map<std::string, int64_t> before = UpdatedAt(lab_, db);
    ASSERT_EQ(before.size(), 4u);
    EXPECT_TRUE(WaitFor(8, [&] {
      std::map<std::string, int64_t> now = UpdatedAt(lab_, db);
      for (const auto& [host, at] : before) {
        if (now[host] <= at) return false;
      }
      return true;
    })) << "some row stopped moving";
  }
  for (int i = 0; i < lab_.size(); ++i) {
    EXPECT_TRUE(Logged(lab_, i, "qorclustd daemon starting with -start_boot...")) << i;
  }
  EXPECT_TRUE(AllActive(lab_, kMaster));
  EXPECT_TRUE(AllActive(lab_, kSlave));
}

}  // namespace
}  // namespace qorlab
