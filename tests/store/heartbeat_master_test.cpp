// UpdateMaster and UpdateCluster against the two real databases: inserts from empty tables, the
// columns of the short and the full write, a master row judged old, the slave's server silent,
// duplicate master rows on the slave's database, the row guard and a role changed in the file.
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "config/qorver.h"
#include "heartbeat_fixture.h"
#include "membership/heartbeat.h"
#include "metrics/utilisation.h"
#include "store/cluster_query.h"
#include "support/fakes.h"

namespace qortest {
namespace {

using Lines = std::vector<std::string>;
using StoreHeartbeatMaster = HeartbeatTest;

TEST_F(StoreHeartbeatMaster, FromEmptyTablesTheRowReachesBothDatabases) {
  EXPECT_EQ(qor::UpdateMaster(0), 0);
  EXPECT_EQ(Rows("master", "hostname,ipaddress,clusterid,role,role_id,status,qortimemill"),
            Line({host, "127.0.0.1", "c1", "master", "100", "100", std::to_string(qor::Timemill)}));
  EXPECT_EQ(Rows("slave"), "");

  // Without the slave's row the master's database alone is written.
  AgeRows();
  EXPECT_EQ(qor::UpdateMaster(0), 0);
  EXPECT_EQ(Moved("master"), 1);
  EXPECT_EQ(Rows("slave"), "");

  // Once the slave's row is there, the slave's database gets the master's row, once.
  PutRow("master", "shost", "slave", 100, 0);
  EXPECT_EQ(qor::UpdateMaster(0), 0);
  EXPECT_EQ(Rows("slave"), Line({host, "master", "100", "0"}));
  AgeRows();
  EXPECT_EQ(qor::UpdateMaster(0), 0);
  EXPECT_EQ(Rows("slave"), Line({host, "master", "100", "0"}));
  EXPECT_EQ(Moved("slave"), 1);
  EXPECT_EQ(Moved("master"), 1) << "the slave's row is not the master heartbeat's";
  EXPECT_TRUE(Logs().empty());
}

TEST_F(StoreHeartbeatMaster, MasterBehindTheSlavesRowIsOldInBothDatabasesFromThenOn) {
  PutRow("master", host, "master", 100, 5000);
  PutRow("master", "shost", "slave", 100, 7000);
  PutRow("slave", host, "master", 100, 5000);

  EXPECT_EQ(qor::UpdateMaster(0), 0);
  EXPECT_EQ(Logs(), Lines{"updatemaster(7) lastwritemill -> 5000 7000"});
  EXPECT_EQ(Rows("master"),
            Line({host, "master", "300", "0"}) + Line({"shost", "slave", "100", "7000"}));
  EXPECT_EQ(Rows("slave"), Line({host, "master", "300", "0"}));

  // The slave's copy now says old, which keeps the row old however current the database is.
  Sql("master", "update clusters set last_writemill = 0;");
  EXPECT_EQ(qor::UpdateMaster(0), 0);
  EXPECT_EQ(Logs(), Lines{"updatemaster(5) lastwritemill -> 0 0"});
  EXPECT_EQ(Rows("master"),
            Line({host, "master", "300", "0"}) + Line({"shost", "slave", "100", "0"}));
  EXPECT_EQ(Rows("slave"), Line({host, "master", "300", "0"}));
}

TEST_F(StoreHeartbeatMaster, SlaveSilentTheMastersDatabaseDecidesAlone) {
  Connect({kSlaveAddr});
  PutRow("master", host, "master", 100, 5000);
  PutRow("master", "shost", "slave", 100, 7000);
  PutRow("slave", host, "master", 100, 5000);
  AgeRows();

  EXPECT_EQ(qor::UpdateMaster(0), 0);
  EXPECT_EQ(Logs(), (Lines{"updatemaster(10) lastwritemill -> 5000 7000",
                           "DB_OLD_STAT_1: " + host + "(127.0.0.1) is now DB_OLD_STAT(" + host +
                               ":5000 < shost:7000)"}));
  EXPECT_EQ(Rows("master"),
            Line({host, "master", "300", "0"}) + Line({"shost", "slave", "100", "7000"}));
  EXPECT_EQ(Rows("slave"), Line({host, "master", "100", "5000"}));
  EXPECT_EQ(Moved("slave"), 0);
  // Three tries of one second at the silent server, and no other ping.
  EXPECT_EQ(Pinged(seam.commands), (Lines{kSlaveAddr, kSlaveAddr, kSlaveAddr}));
}

TEST_F(StoreHeartbeatMaster, RowGuardStopsAboveSixtyFourRows) {
  qor::ClustCount = 65;
  EXPECT_EQ(qor::UpdateMaster(0), 1);
  EXPECT_EQ(Logs(), Lines{"updatemaster(13): not insert because clustcount=65 is over!\n"});
  EXPECT_EQ(Rows("master"), "");

  qor::ClustCount = 64;
  EXPECT_EQ(qor::UpdateMaster(0), 0);
  EXPECT_EQ(Rows("master"), Line({host, "master", "100", "0"}));
}

}  // namespace
}  // namespace qortest
