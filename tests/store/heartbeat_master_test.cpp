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

TEST_F(StoreHeartbeatMaster, ShortFormWritesTheLiveColumnsFullFormTheWholeRow) {
  Sql("master",
      "insert into containers (containerid, hostname) values ('a', '127.0.0.1'), "
      "('b', '127.0.0.1'), ('', '127.0.0.1'), ('c', '127.0.0.9');");
  // The slave's database numbers its rows differently.
  PutRow("slave", "filler", "member", 100, 0);
  for (const char* side : {"master", "slave"}) {
    PutRow(side, "stale", "master", 200, 4000);
    PutRow(side, "shost", "slave", 100, 4000);
    Sql(side,
        "update clusters set ipaddress='10.9.9.9', qorver='0.1', cpus=77, cpuutil=0.99, "
        "containers=55, tpl_updatemill=11, tpl_syncmill=12 where role='master';");
  }
  AgeRows();
  qor::CpuUtil = 0.25;
  qor::QorVersion = "9.9.9";
  const std::string query =
      "select hostname,ipaddress,status,last_writemill,containers,qorver,cpus,cpuutil,"
      "tpl_updatemill,tpl_syncmill from clusters where role='master';";

  EXPECT_EQ(qor::UpdateMaster(0), 0);
  for (const char* side : {"master", "slave"}) {
    EXPECT_EQ(Sql(side, query),
              Line({"stale", "10.9.9.9", "100", "4000", "2", "0.1", "77", "0.99", "11", "12"}))
        << side;
    EXPECT_EQ(Moved(side), 1) << side;
  }

  AgeRows();
  EXPECT_EQ(qor::UpdateMaster(1), 0);
  for (const char* side : {"master", "slave"}) {
    EXPECT_EQ(Sql(side, query), Line({host, "127.0.0.1", "100", "4000", "2", "9.9.9",
                                      std::to_string(qor::Clust.cpus), "0.25", "11", "12"}))
        << side;
    EXPECT_EQ(Moved(side), 1) << side;
  }
  EXPECT_TRUE(Logs().empty());
  qor::CpuUtil = 0;
  qor::QorVersion = "";
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

TEST_F(StoreHeartbeatMaster, DuplicateMasterRowsOnTheSlavesDatabaseLeaveOnlyThatOneAlone) {
  PutRow("master", host, "master", 200, 0);
  PutRow("master", "shost", "slave", 100, 0);
  PutRow("slave", host, "master", 100, 0);
  PutRow("slave", "other", "master", 100, 0);
  AgeRows();
  const std::string slave = Rows("slave");
  EXPECT_EQ(qor::UpdateMaster(0), 0);
  EXPECT_EQ(Logs(), Lines{"updatemaster(16) 2 master rows found on 127.0.0.2, left unchanged "
                          "there"});
  EXPECT_EQ(Moved("master"), 1);
  EXPECT_EQ(Rows("master"),
            Line({host, "master", "100", "0"}) + Line({"shost", "slave", "100", "0"}));
  EXPECT_EQ(Rows("slave"), slave);
  EXPECT_EQ(Moved("slave"), 0);
}

TEST_F(StoreHeartbeatMaster, OwnDatabaseFailingKeepsTheCopyOnTheSlaveMoving) {
  PutRow("slave", host, "master", 200, 0);
  AgeRows();
  Sql("master", "rename table clusters to clusters_away;");
  int result = qor::UpdateMaster(0);
  Sql("master", "rename table clusters_away to clusters;");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Moved("slave"), 1);
  EXPECT_EQ(Rows("slave"), Line({host, "master", "200", "0"})) << "judged by nobody: status kept";
  EXPECT_EQ(Rows("master"), "") << "no insert into a database that failed";
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

TEST_F(StoreHeartbeatMaster, RowGuardOnTheSlavesSideWritesNeitherDatabase) {
  PutRow("master", host, "master", 200, 0);
  PutRow("master", "shost", "slave", 100, 0);
  AgeRows();
  qor::ClustCount = 65;
  EXPECT_EQ(qor::UpdateMaster(0), 1);
  EXPECT_EQ(Logs(), Lines{"updatemaster(8): not insert because clustcount=65 is over!\n"});
  EXPECT_EQ(Moved("master"), 0);
  EXPECT_EQ(Rows("slave"), "");

  // The inserted copy takes the status as read; the master's own copy is not revived here.
  qor::ClustCount = 64;
  EXPECT_EQ(qor::UpdateMaster(0), 0);
  EXPECT_EQ(Rows("slave"), Line({host, "master", "200", "0"}));
  EXPECT_EQ(Moved("master"), 1);
}

TEST_F(StoreHeartbeatMaster, RoleChangedInTheFileStopsBeforeAnyWrite) {
  WriteConf("slave");
  int rc = 0;
  EXPECT_EQ(StdoutOf([&] { rc = qor::UpdateMaster(0); }), "Not Master Role error!\n");
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(qor::ClustRole, qor::kRoleSlave);
  EXPECT_EQ(Logs(), Lines{"updatemaster(15) not master role error!\n"});
  EXPECT_EQ(Rows("master") + Rows("slave"), "");
}

TEST_F(StoreHeartbeatMaster, DebugModeTracesTheSteps) {
  qor::Xmode = 1;
  std::string out = StdoutOf([] { EXPECT_EQ(qor::UpdateMaster(0), 0); });
  qor::Xmode = 0;
  size_t start =
      out.find("_xupdatemaster(3): host=" + host + " clustrole=master(100) starting...\n");
  size_t count = out.find("_xupdatemaster(4): mactinfo.count=0\n");
  size_t insert = out.find("_xupdatemaster(14): insert into 127.0.0.1 with status=100 ...\n");
  EXPECT_LT(start, count);
  EXPECT_LT(count, insert);
  EXPECT_NE(insert, std::string::npos);
}

TEST_F(StoreHeartbeatMaster, UpdateClusterHandsOverByRole) {
  Become("slave");
  EXPECT_EQ(qor::UpdateCluster(0), 0);
  EXPECT_EQ(Rows("master"), Line({host, "slave", "100", "0"}));

  Become("member");
  qor::Cluster = 0;
  EXPECT_EQ(qor::UpdateCluster(0), 1);
  EXPECT_EQ(Logs(), Lines{"updatemember(1) this is not cluster!"});

  qor::ClustRole = qor::kRoleOther;
  int rc = 0;
  EXPECT_EQ(StdoutOf([&] { rc = qor::UpdateCluster(0); }), "Unknown Role error!\n");
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(Logs(), Lines{"updatecluster(1) unknown role error!\n"});
  EXPECT_EQ(Rows("master"), Line({host, "slave", "100", "0"}));
}

}  // namespace
}  // namespace qortest
