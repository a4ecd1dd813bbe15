// The heartbeats against the two real databases where a database's answer decides: the master
// with the slave's server silent, the slave with the master's silent and no master row, a member's
// copies on the slave, its template request and the row guard. Joining, a database behind and
// partitions are the lab's.
#include "membership/heartbeat.h"

#include <string>
#include <utility>

#include "replication/replication.h"
#include "store/cluster_query.h"
#include "store/containers.h"
#include "store/pools.h"
#include "store_fixture.h"

namespace qortest {
namespace {

using StoreHeartbeat = HeartbeatTest;

// The wall clock the heartbeats stamp their inserts with.
constexpr int64_t kNowMill = 1700000000000;

// Rows' columns with a last one that tells whether the row was written in the last minute.
const char* const kWritten =
    "hostname,role,status,last_writemill,updated_at > now() - interval 1 minute";

TEST_F(StoreHeartbeat, MasterWithTheSlaveSilentDecidesFromItsDatabaseAlone) {
  Connect({kSlaveAddr});
  Put("master",
      {{host, "", "master", 100, 0, "0", 5000}, {"shost", "", "slave", 100, 0, "0", 7000}});
  Put("slave", {{host, "", "master", 100, 0, "0", 5000, 3600}});

  EXPECT_EQ(qor::UpdateMaster(node, qor::RowForm::kShort, kNowMill), 0);
  EXPECT_EQ(Logs(), (Lines{"updatemaster(10) lastwritemill -> 5000 7000",
                           "DB_OLD_STAT_1: " + host + "(127.0.0.1) is now DB_OLD_STAT(" + host +
                               ":5000 < shost:7000)"}));
  EXPECT_EQ(Rows("master"),
            Line({host, "master", "300", "0"}) + Line({"shost", "slave", "100", "7000"}));
  EXPECT_EQ(Rows("slave", kWritten), Line({host, "master", "100", "5000", "0"}));
  // Three tries of one second at the silent server, and no other ping.
  EXPECT_EQ(Pinged(seam.commands), (Lines{kSlaveAddr, kSlaveAddr, kSlaveAddr}));
}

// The notice shows the master's rows as an earlier read of its database left them.
TEST_F(StoreHeartbeat, SlaveWithTheMasterSilentAndNoMasterRowMakesItsDatabaseOldOnce) {
  Become("slave");
  Connect({kMasterAddr});
  node.ClustsOnMaster[0]->last_writemill = 6000;
  node.ClustsOnMaster[1]->last_writemill = 4000;
  Put("slave", {{host, "", "slave", 100, 0, "0", 4000}});
  EXPECT_EQ(qor::UpdateSlave(node, qor::RowForm::kShort, kNowMill), 0);
  EXPECT_EQ(Logs(), (Lines{"updateslave(15) lastwritemill -> 6000 4000",
                           "DB_OLD_STAT_3: " + host + "(127.0.0.1) is now DB_OLD_STAT(" + host +
                               ":4000)"}));
  EXPECT_EQ(Rows("slave"), Line({host, "slave", "300", "0"}));

  Sql("slave", "update clusters set updated_at = now() - interval 1 hour;");
  EXPECT_EQ(qor::UpdateSlave(node, qor::RowForm::kShort, kNowMill), 0);
  EXPECT_TRUE(Logs().empty());
  EXPECT_EQ(Rows("slave", kWritten), Line({host, "slave", "300", "0", "1"}));
}

// Which status the copy takes is the decision table's; here the write reaches the slave's copy by
// its own id, and a template copy marked old asks for a pull, its mark carried to the copy.
TEST_F(StoreHeartbeat, MembersCopyOnTheSlaveTakesTheMastersStatusAndTemplateMark) {
  Become("member");
  Put("master", {{host, "", "member", 200, 0, "0", 0, 0, 88, 77, 300}});
  Put("slave", {{"filler", "", "member", 100, 0, "0", 0}, {host, "", "member", 300, 0, "0", 0}});
  EXPECT_EQ(qor::UpdateMember(node, qor::RowForm::kFull, kNowMill), 0);
  EXPECT_EQ(Rows("master"), Line({host, "member", "100", "0"}));
  EXPECT_EQ(Rows("slave"),
            Line({"filler", "member", "100", "0"}) + Line({host, "member", "100", "0"}));
  EXPECT_EQ(node.Tplsync, 1);
  EXPECT_EQ(Rows("slave", "tpl_updatemill,tpl_syncmill,tpl_syncstate"),
            Line({"0", "0", "0"}) + Line({"77", "88", "300"}));
}

// A pull is recorded only when rsync ended well: a failed one leaves the mark for the next pass.
TEST_F(StoreHeartbeat, PullRecordedOnlyWhenRsyncEndedWell) {
  Become("member");
  node.Clust.hostname.set(host);
  auto pings = seam.real;
  for (auto [rsyncStatus, state] : {std::pair{255, "300"}, {0, "100"}}) {
    Sql("master", "delete from clusters;");
    Put("master", {{host, "", "member", 100, 0, "0", 0, 0, 88, 77, 300}});
    seam.real = [&, status = rsyncStatus](std::string& c) {
      if (c.rfind("rsync ", 0) != 0) return pings(c);
      c = "exit " + std::to_string(status);
      return true;
    };
    qor::TplRecord record;
    EXPECT_EQ(qor::RsyncLicWlistTpl(record, host.c_str()).ok, rsyncStatus == 0);
    EXPECT_EQ(Rows("master", "tpl_syncstate"), Line({state})) << "rsync status " << rsyncStatus;
  }
}

// The limit itself is the decision table's, a member's first insert the lab's joining.
TEST_F(StoreHeartbeat, RowGuardStopsAMemberAboveSixtyFourRows) {
  Become("member");
  node.ClustCount = 65;
  EXPECT_EQ(qor::UpdateMember(node, qor::RowForm::kShort, kNowMill), 1);
  EXPECT_EQ(Logs(), Lines{"updatemember(6): not insert because clustcount=65 is over!\n"});
  EXPECT_EQ(Rows("master") + Rows("slave"), "");
}

// A count that failed is no count: the row keeps the last good one, and the log says so once for
// the run of failures.
TEST_F(StoreHeartbeat, FailedContainerCountKeepsTheLastGoodOne) {
  Become("member");
  Put("master", {{host, "", "member"}});
  node.Clust.containers = 7;
  Sql("master", "rename table containers to containers_away;");
  for (int cycle = 0; cycle < 2; ++cycle)
    EXPECT_EQ(qor::UpdateMember(node, qor::RowForm::kShort, kNowMill), 0);
  Sql("master", "rename table containers_away to containers;");
  EXPECT_EQ(Rows("master", "hostname,containers"), Line({host, "7"}));
  EXPECT_EQ(Logs(), (Lines{"getcontainersdb db query error",
                           "getcontainers failed (501), containers kept at 7",
                           "getcontainersdb db query error"}));
  EXPECT_EQ(qor::UpdateMember(node, qor::RowForm::kShort, kNowMill), 0);
  EXPECT_EQ(Rows("master", "hostname,containers"), Line({host, "0"}));
  EXPECT_FALSE(node.ContainersFailing);
}

// A read its database refuses says nothing about the row: the member inserts none, anywhere.
TEST_F(StoreHeartbeat, MemberInsertsNoRowAfterAReadThatFailed) {
  Become("member");
  const char* sides[] = {"master", "slave"};
  for (const char* side : sides) Sql(side, "revoke select on qor.* from 'qordirect'@'%';");
  qor::CloseConnectionPool();
  Connect();
  EXPECT_EQ(qor::UpdateMember(node, qor::RowForm::kShort, kNowMill), 0);
  for (const char* side : sides) Sql(side, "grant select on qor.* to 'qordirect'@'%';");
  EXPECT_EQ(Rows("master") + Rows("slave"), "");
}

}  // namespace
}  // namespace qortest
