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
