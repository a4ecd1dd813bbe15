// The heartbeats against the two real databases where a database's answer decides: the master
// with the slave's server silent, the slave with the master's silent and no master row, a member's
// copies on the slave, its template request and the row guard. Joining, a database behind and
// partitions are the lab's.
#include "membership/heartbeat.h"

#include <string>
#include <vector>

#include "store/cluster_query.h"
#include "store/pools.h"
#include "store_fixture.h"

namespace qortest {
namespace {

using Lines = std::vector<std::string>;
using StoreHeartbeat = HeartbeatTest;

TEST_F(StoreHeartbeat, MasterWithTheSlaveSilentDecidesFromItsDatabaseAlone) {
  Connect({kSlaveAddr});
  Put("master", {{host, "", "master", 100, 0, "0", 5000}});
  Put("master", {{"shost", "", "slave", 100, 0, "0", 7000}});
  Put("slave", {{host, "", "master", 100, 0, "0", 5000}});
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

TEST_F(StoreHeartbeat, SlaveWithTheMasterSilentAndNoMasterRowMakesItsDatabaseOldOnce) {
  struct {
    const char* name;
    int64_t masterWrite, slaveWrite;  // as an earlier read of the master's database left them
    const char* notice;
  } cases[] = {
      {"read before", 6000, 4000, "updateslave(15) lastwritemill -> 6000 4000"},
      {"never read", 0, 0, "updateslave(15) lastwritemill -> 0 0"},
  };
  Become("slave");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ResetTables();
    Connect({kMasterAddr});
    *qor::ClustsOnMaster[0] = qor::ClustRecord{};
    *qor::ClustsOnMaster[1] = qor::ClustRecord{};
    qor::ClustsOnMaster[0]->last_writemill = c.masterWrite;
    qor::ClustsOnMaster[1]->last_writemill = c.slaveWrite;
    Put("slave", {{host, "", "slave", 100, 0, "0", 4000}});
    EXPECT_EQ(qor::UpdateSlave(0), 0);
    EXPECT_EQ(Logs(), (Lines{c.notice, "DB_OLD_STAT_3: " + host +
                                           "(127.0.0.1) is now DB_OLD_STAT(" + host + ":4000)"}));
    EXPECT_EQ(Rows("slave"), Line({host, "slave", "300", "0"}));

    AgeRows();
    EXPECT_EQ(qor::UpdateSlave(0), 0);
    EXPECT_TRUE(Logs().empty());
    EXPECT_EQ(Rows("slave"), Line({host, "slave", "300", "0"}));
    EXPECT_EQ(Moved("slave"), 1);
  }
}

TEST_F(StoreHeartbeat, MembersCopyOnTheSlaveTakesTheMastersStatusAndTemplateMark) {
  struct {
    int master, slave, tpl;
    const char* want;
  } cases[] = {{100, 200, 100, "100"}, {300, 200, 100, "300"}, {200, 300, 300, "100"}};
  Become("member");
  for (const auto& c : cases) {
    ResetTables();
    qor::Tplsync = 0;
    Put("master", {{host, "", "member", c.master, 0, "0", 0, 0, 0, 0, c.tpl}});
    Sql("master", "update clusters set tpl_updatemill = 77, tpl_syncmill = 88;");
    Put("slave", {{"filler", "", "member", 100, 0, "0", 0}});
    Put("slave", {{host, "", "member", c.slave, 0, "0", 0}});
    EXPECT_EQ(qor::UpdateMember(1), 0);
    EXPECT_EQ(Rows("master"), Line({host, "member", c.want, "0"}));
    EXPECT_EQ(Rows("slave"),
              Line({"filler", "member", "100", "0"}) + Line({host, "member", c.want, "0"}));
    // A template copy marked old asks for a pull, and the slave's copy carries the mark.
    EXPECT_EQ(qor::Tplsync, c.tpl == 300 ? 1 : 0);
    EXPECT_EQ(Rows("slave", "tpl_updatemill,tpl_syncmill,tpl_syncstate"),
              Line({"0", "0", "0"}) + Line({"77", "88", std::to_string(c.tpl)}));
  }
}

TEST_F(StoreHeartbeat, RowGuardStopsAMemberAboveSixtyFourRows) {
  Become("member");
  qor::ClustCount = 65;
  EXPECT_EQ(qor::UpdateMember(0), 1);
  EXPECT_EQ(Logs(), Lines{"updatemember(6): not insert because clustcount=65 is over!\n"});
  EXPECT_EQ(Rows("master") + Rows("slave"), "");

  qor::ClustCount = 64;
  EXPECT_EQ(qor::UpdateMember(0), 0);
  EXPECT_EQ(Rows("master") + Rows("slave"),
            Line({host, "member", "100", "0"}) + Line({host, "member", "100", "0"}));
}

// A read its database refuses says nothing about the row: the member inserts none, anywhere.
TEST_F(StoreHeartbeat, MemberInsertsNoRowAfterAReadThatFailed) {
  Become("member");
  const char* sides[] = {"master", "slave"};
  for (const char* side : sides) Sql(side, "revoke select on qor.* from 'qordirect'@'%';");
  qor::CloseConnectionPool();
  Connect();
  EXPECT_EQ(qor::UpdateMember(0), 0);
  for (const char* side : sides) Sql(side, "grant select on qor.* to 'qordirect'@'%';");
  EXPECT_EQ(Rows("master") + Rows("slave"), "");
}

}  // namespace
}  // namespace qortest
