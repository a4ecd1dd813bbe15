// UpdateSlave against the two real databases: inserts from empty tables, the slave's row revived
// or kept by its last write, the template request, its own database declared old while the master
// is silent, duplicate slave rows and the row guard.
#include <string>
#include <vector>

#include "heartbeat_fixture.h"
#include "membership/heartbeat.h"
#include "store/cluster_query.h"

namespace qortest {
namespace {

using Lines = std::vector<std::string>;

class StoreHeartbeatSlave : public HeartbeatTest {
 protected:
  void SetUp() override {
    HeartbeatTest::SetUp();
    Become("slave");
  }
};

TEST_F(StoreHeartbeatSlave, FromEmptyTablesTheRowReachesBothDatabases) {
  EXPECT_EQ(qor::UpdateSlave(0), 0);
  EXPECT_EQ(Rows("master", "hostname,ipaddress,clusterid,role,role_id,status"),
            Line({host, "127.0.0.1", "c1", "slave", "101", "100"}));
  EXPECT_EQ(Rows("slave"), "") << "the slave's database is not written in that branch";

  EXPECT_EQ(qor::UpdateSlave(0), 0);
  EXPECT_EQ(Rows("slave"), Line({host, "slave", "100", "0"}));

  AgeRows();
  EXPECT_EQ(qor::UpdateSlave(0), 0);
  EXPECT_EQ(Rows("master") + Rows("slave"),
            Line({host, "slave", "100", "0"}) + Line({host, "slave", "100", "0"}));
  EXPECT_EQ(Moved("master") + Moved("slave"), 2);

  // With the master's row in its database the slave writes only its own row there.
  PutRow("master", "mhost", "master", 100, 0);
  AgeRows();
  EXPECT_EQ(qor::UpdateSlave(0), 0);
  EXPECT_EQ(Moved("master"), 1);
  EXPECT_EQ(Moved("slave"), 1);
  EXPECT_EQ(Rows("slave"), Line({host, "slave", "100", "0"}));
  EXPECT_TRUE(Logs().empty());
}

TEST_F(StoreHeartbeatSlave, MasterSilentAndNoMasterRowMakesThisDatabaseOldOnce) {
  struct {
    const char* name;
    int64_t masterWrite, slaveWrite;  // as an earlier read of the master's database left them
    const char* notice;
  } cases[] = {
      {"read before", 6000, 4000, "updateslave(15) lastwritemill -> 6000 4000"},
      {"never read", 0, 0, "updateslave(15) lastwritemill -> 0 0"},
  };
  for (const auto& c : cases) {
    ResetTables();
    Connect({kMasterAddr});
    *qor::ClustsOnMaster[0] = qor::ClustRecord{};
    *qor::ClustsOnMaster[1] = qor::ClustRecord{};
    qor::ClustsOnMaster[0]->last_writemill = c.masterWrite;
    qor::ClustsOnMaster[1]->last_writemill = c.slaveWrite;
    PutRow("slave", host, "slave", 100, 4000);
    EXPECT_EQ(qor::UpdateSlave(0), 0) << c.name;
    EXPECT_EQ(Logs(), (Lines{c.notice, "DB_OLD_STAT_3: " + host +
                                           "(127.0.0.1) is now DB_OLD_STAT(" + host + ":4000)"}))
        << c.name;
    EXPECT_EQ(Rows("slave"), Line({host, "slave", "300", "0"})) << c.name;

    AgeRows();
    EXPECT_EQ(qor::UpdateSlave(0), 0) << c.name;
    EXPECT_TRUE(Logs().empty()) << c.name;
    EXPECT_EQ(Rows("slave"), Line({host, "slave", "300", "0"})) << c.name;
    EXPECT_EQ(Moved("slave"), 1) << c.name;
  }
}

}  // namespace
}  // namespace qortest
