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

TEST_F(StoreHeartbeatSlave, MasterRowOnlyInsertsIntoBothDatabases) {
  PutRow("master", "mhost", "master", 100, 0);
  EXPECT_EQ(qor::UpdateSlave(0), 0);
  EXPECT_EQ(Rows("master"),
            Line({"mhost", "master", "100", "0"}) + Line({host, "slave", "100", "0"}));
  EXPECT_EQ(Rows("slave"), Line({host, "slave", "100", "0"}));
}

TEST_F(StoreHeartbeatSlave, InactiveRowRevivedUnlessItsLastWriteIsBehind) {
  struct {
    int64_t slaveWrite;
    const char* status;
    Lines logs;
  } cases[] = {
      {4000, "100", {"updateslave(5) status=200"}},
      {3000, "200", {}},
  };
  for (const auto& c : cases) {
    ResetTables();
    PutRow("master", "mhost", "master", 100, 4000);
    PutRow("master", host, "slave", 200, c.slaveWrite);
    // A different id for the same row in the slave's database.
    PutRow("slave", "filler", "member", 100, 0);
    PutRow("slave", host, "slave", 200, 4000);

    EXPECT_EQ(qor::UpdateSlave(0), 0);
    EXPECT_EQ(Logs(), c.logs);
    std::string w = std::to_string(c.slaveWrite);
    EXPECT_EQ(Rows("master"),
              Line({"mhost", "master", "100", "4000"}) + Line({host, "slave", c.status, w}));
    // The slave's copy takes the master's copy's values, its last write included.
    EXPECT_EQ(Rows("slave"),
              Line({"filler", "member", "100", "0"}) + Line({host, "slave", c.status, w}));
  }
}

TEST_F(StoreHeartbeatSlave, TemplateDeclaredOldOnTheMastersDatabaseRaisesTplsync) {
  PutRow("master", "mhost", "master", 100, 0);
  PutRow("master", host, "slave", 100, 0, 300);
  PutRow("slave", host, "slave", 100, 0, 100);
  EXPECT_EQ(qor::UpdateSlave(0), 0);
  EXPECT_EQ(qor::Tplsync, 1);
  EXPECT_EQ(Rows("slave", "tpl_syncstate"), "300\n");
}

TEST_F(StoreHeartbeatSlave, MasterSilentAndItsRowWrittenLaterMakesThisDatabaseOld) {
  Connect({kMasterAddr});
  PutRow("master", host, "slave", 100, 4000);
  PutRow("slave", "mhost", "master", 100, 9000);
  PutRow("slave", host, "slave", 100, 4000);
  // The notice shows the rows as an earlier cycle read them from the master's database.
  qor::ClustsOnMaster[0]->last_writemill = 111;
  qor::ClustsOnMaster[1]->last_writemill = 222;
  AgeRows();

  EXPECT_EQ(qor::UpdateSlave(0), 0);
  EXPECT_EQ(Logs(), (Lines{"updateslave(14) lastwritemill -> 111 222",
                           "DB_OLD_STAT_2: " + host + "(127.0.0.1) is now DB_OLD_STAT(" + host +
                               ":4000 < mhost:9000)"}));
  EXPECT_EQ(Rows("slave"),
            Line({"mhost", "master", "100", "9000"}) + Line({host, "slave", "300", "0"}));
  EXPECT_EQ(Moved("master"), 0);
  // Three tries of one second at the silent server, and no other ping.
  EXPECT_EQ(Pinged(seam.commands), (Lines{kMasterAddr, kMasterAddr, kMasterAddr}));
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

TEST_F(StoreHeartbeatSlave, DuplicateSlaveRowsOnItsDatabaseAreLeftTheMastersCopyIsWritten) {
  struct {
    bool masterRow;
    Lines logs;
  } cases[] = {
      {true,
       {"updateslave(5) status=200",
        "updateslave(19) 2 slave rows found on 127.0.0.2, left "
        "unchanged"}},
      {false, {"updateslave(19) 2 slave rows found on 127.0.0.2, left unchanged"}},
  };
  for (const auto& c : cases) {
    ResetTables();
    if (c.masterRow) PutRow("master", "mhost", "master", 100, 0);
    PutRow("master", host, "slave", 200, 0);
    PutRow("slave", host, "slave", 100, 0);
    PutRow("slave", "other", "slave", 100, 0);
    AgeRows();
    const std::string slave = Rows("slave");
    for (int cycle = 1; cycle <= 2; ++cycle) {
      EXPECT_EQ(qor::UpdateSlave(0), 1);
      EXPECT_EQ(Logs(), cycle == 1 ? c.logs : Lines{c.logs.back()}) << "master row " << c.masterRow;
      // Its row in the master's database keeps moving, or the master's monitor would take this
      // running slave for a silent one.
      EXPECT_EQ(Sql("master", "select status from clusters where role = 'slave';"), "100\n")
          << "master row " << c.masterRow;
      EXPECT_EQ(Moved("master"), 1) << "master row " << c.masterRow;
      EXPECT_EQ(Rows("slave"), slave) << "master row " << c.masterRow;
      EXPECT_EQ(Moved("slave"), 0) << "master row " << c.masterRow;
      AgeRows();
    }
  }
}

TEST_F(StoreHeartbeatSlave, RowGuardStopsAboveSixtyFourRows) {
  PutRow("master", "mhost", "master", 100, 0);
  qor::ClustCount = 65;
  EXPECT_EQ(qor::UpdateSlave(0), 1);
  EXPECT_EQ(Logs(), Lines{"updateslave(10): not insert because clustcount=65 is over!\n"});
  EXPECT_EQ(Rows("master"), Line({"mhost", "master", "100", "0"}));
  EXPECT_EQ(Rows("slave"), "");

  qor::ClustCount = 64;
  EXPECT_EQ(qor::UpdateSlave(0), 0);
  EXPECT_EQ(Rows("slave"), Line({host, "slave", "100", "0"}));
}

}  // namespace
}  // namespace qortest
