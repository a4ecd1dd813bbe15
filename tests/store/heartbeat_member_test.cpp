// UpdateMember against the two real databases. The member's own address is that of lo
// (127.0.0.1) like every node of these tests; its row is found by host name, so that does not
// matter here.
#include <string>
#include <vector>

#include "heartbeat_fixture.h"
#include "membership/heartbeat.h"
#include "store/cluster_query.h"
#include "support/fakes.h"

namespace qortest {
namespace {

using Lines = std::vector<std::string>;

class StoreHeartbeatMember : public HeartbeatTest {
 protected:
  void SetUp() override {
    HeartbeatTest::SetUp();
    Become("member");
  }

  // UpdateMember(0) with what it printed.
  int Run(std::string* out) {
    int rc = 0;
    *out = StdoutOf([&] { rc = qor::UpdateMember(0); });
    return rc;
  }
};

TEST_F(StoreHeartbeatMember, RowMissingEverywhereIsInsertedIntoBoth) {
  EXPECT_EQ(qor::UpdateMember(0), 0);
  for (const char* side : {"master", "slave"}) {
    EXPECT_EQ(Rows(side, "hostname,ipaddress,clusterid,role,role_id,status"),
              Line({host, "127.0.0.1", "c1", "member", "102", "100"}))
        << side;
  }
  AgeRows();
  EXPECT_EQ(qor::UpdateMember(0), 0);
  EXPECT_EQ(Moved("master") + Moved("slave"), 2);
  EXPECT_EQ(Rows("master") + Rows("slave"),
            Line({host, "member", "100", "0"}) + Line({host, "member", "100", "0"}));
  EXPECT_TRUE(Logs().empty());
}

TEST_F(StoreHeartbeatMember, SlavesCopyTakesTheMastersStatus) {
  struct {
    int master, slave;
    const char* want;
  } cases[] = {{100, 200, "100"}, {300, 200, "300"}, {200, 300, "100"}};
  for (const auto& c : cases) {
    ResetTables();
    PutRow("master", host, "member", c.master, 0);
    PutRow("slave", "filler", "member", 100, 0);
    PutRow("slave", host, "member", c.slave, 0);
    EXPECT_EQ(qor::UpdateMember(0), 0);
    EXPECT_EQ(Rows("master"), Line({host, "member", c.want, "0"}));
    EXPECT_EQ(Rows("slave"),
              Line({"filler", "member", "100", "0"}) + Line({host, "member", c.want, "0"}));
  }
}

TEST_F(StoreHeartbeatMember, TemplateDeclaredOldRaisesTplsyncAndReachesTheSlavesCopy) {
  PutRow("master", host, "member", 100, 0, 300);
  Sql("master", "update clusters set tpl_updatemill = 77, tpl_syncmill = 88;");
  PutRow("slave", host, "member", 100, 0, 100);
  EXPECT_EQ(qor::UpdateMember(1), 0);
  EXPECT_EQ(qor::Tplsync, 1);
  EXPECT_EQ(Rows("slave", "tpl_updatemill,tpl_syncmill,tpl_syncstate"), Line({"77", "88", "300"}));
}

TEST_F(StoreHeartbeatMember, HostTwiceOnTheMastersDatabaseWritesNothing) {
  PutRow("master", host, "member", 100, 0);
  PutRow("master", host, "member", 100, 0);
  PutRow("slave", host, "member", 100, 0);
  AgeRows();
  std::string out;
  EXPECT_EQ(Run(&out), 1);
  EXPECT_EQ(out, "Multiple " + host + " found at CheckCluster on Master\n");
  EXPECT_EQ(Logs(), Lines{"updatemember(8) multiple " + host + " found on Master\n"});
  EXPECT_EQ(Moved("master") + Moved("slave"), 0);
}

TEST_F(StoreHeartbeatMember, HostTwiceOnTheSlavesDatabaseAfterTheMastersCopyIsWritten) {
  PutRow("master", host, "member", 200, 0);
  PutRow("slave", host, "member", 100, 0);
  PutRow("slave", host, "member", 100, 0);
  AgeRows();
  std::string out;
  EXPECT_EQ(Run(&out), 1);
  EXPECT_EQ(out, "Multiple " + host + " found on Slave\n");
  EXPECT_EQ(Logs(), Lines{"updatemember(12) multiple " + host + " found on slave\n"});
  EXPECT_EQ(Rows("master"), Line({host, "member", "100", "0"}));
  EXPECT_EQ(Moved("slave"), 0);
}

TEST_F(StoreHeartbeatMember, SlaveSilentOnlyTheMastersCopyIsWritten) {
  Connect({kSlaveAddr});
  PutRow("master", host, "member", 200, 0);
  PutRow("slave", host, "member", 200, 0);
  AgeRows();
  std::string out;
  EXPECT_EQ(Run(&out), 0);
  EXPECT_EQ(out, "");
  EXPECT_TRUE(Logs().empty());
  EXPECT_EQ(Rows("master"), Line({host, "member", "100", "0"}));
  EXPECT_EQ(Rows("slave"), Line({host, "member", "200", "0"}));
  EXPECT_EQ(Moved("slave"), 0);
}

TEST_F(StoreHeartbeatMember, MasterSilentTheSlavesCopyFollowsTheMastersCopyLastRead) {
  struct {
    const char* name;
    bool readBefore;  // a cycle with both servers up came first
    const char* want;
  } cases[] = {
      {"the master's copy of the earlier cycle wins", true, "300"},
      {"never read: the slave's copy is only revived", false, "100"},
  };
  for (const auto& c : cases) {
    ResetTables();
    Connect();
    *qor::ClustsOnMaster[0] = qor::ClustRecord{};
    PutRow("master", host, "member", 300, 0, 300);
    PutRow("slave", host, "member", 200, 0, 100);
    if (c.readBefore) {
      EXPECT_EQ(qor::UpdateMember(0), 0) << c.name;
      // The slave's copy moves on by itself: a template pull recorded, a monitor's verdict.
      Sql("slave", "update clusters set status = 200, tpl_syncstate = 100;");
    }
    qor::Tplsync = 0;
    Connect({kMasterAddr});
    EXPECT_EQ(qor::UpdateMember(0), 0) << c.name;
    EXPECT_EQ(Rows("slave", "status,tpl_syncstate"), Line({c.want, "100"}))
        << c.name << ": the template state follows only a copy written in this cycle";
    EXPECT_EQ(qor::Tplsync, 0) << c.name;
    EXPECT_EQ(Rows("master", "status"), "300\n") << c.name;
  }
}

TEST_F(StoreHeartbeatMember, RowGuardStopsAboveSixtyFourRows) {
  qor::ClustCount = 65;
  EXPECT_EQ(qor::UpdateMember(0), 1);
  EXPECT_EQ(Logs(), Lines{"updatemember(6): not insert because clustcount=65 is over!\n"});
  EXPECT_EQ(Rows("master") + Rows("slave"), "");

  qor::ClustCount = 64;
  EXPECT_EQ(qor::UpdateMember(0), 0);
  EXPECT_EQ(Rows("master") + Rows("slave"),
            Line({host, "member", "100", "0"}) + Line({host, "member", "100", "0"}));
}

}  // namespace
}  // namespace qortest
