// The container-row cleaning against the two real databases: which rows are deleted or released,
// on which database, and an unset address that is neither pinged nor cleaned.
#include "housekeeping/container_rows.h"

#include <string>

#include "config/qorconf.h"
#include "store/pools.h"
#include "store_fixture.h"

namespace qortest {
namespace {

class StoreContainerRows : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    for (const char* side : {"master", "slave"}) {
      // Ages by the database's clock; '_' is a wildcard, so lumobrX is released too.
      Sql(side,
          "insert into containers (containerid, containername, username, hostname, updated_at) "
          "values ('', 'web', 'u', 'h', now()), ('c1', 'web', 'u', 'h', now()), "
          "('c2', 'lumobr_1', 'u', 'h', now() - interval 6 minute), "
          "('c3', 'lumodt_1', 'u', 'h', now() - interval 6 minute), "
          "('c4', 'lumobrX', 'u', 'h', now() - interval 6 minute), "
          "('c5', 'lumobr_2', 'u', 'h', now() - interval 4 minute), "
          "('c6', 'web_1', 'u', 'h', now() - interval 6 minute);");
    }
  }
  std::string Kept(const std::string& side) {
    return Sql(side,
               "select concat(ifnull(containerid, 'NULL'), ':', ifnull(containername, 'NULL'), "
               "':', ifnull(username, 'NULL')) from containers order by id;");
  }
  const std::string untouched =
      ":web:u\nc1:web:u\nc2:lumobr_1:u\nc3:lumodt_1:u\nc4:lumobrX:u\n"
      "c5:lumobr_2:u\nc6:web_1:u\n";
};

TEST_F(StoreContainerRows, NullRowsGoOnTheDatabaseTheAddressNames) {
  Connect();
  const std::string cleaned = untouched.substr(std::string(":web:u\n").size());
  // The housekeeping cleans both databases, each through its own address (with the slave's unset,
  // its database keeps its row); an unset slave address is neither pinged nor cleaned.
  for (const char* slave : {kSlaveAddr, "0"}) {
    qor::cnf.clustslave.set(slave);
    Sql("slave", "insert into containers (containerid) values ('');");
    seam.commands.clear();
    EXPECT_EQ(qor::CheckAllRsvContainers(), 0);
    EXPECT_EQ(Kept("master"), cleaned);
    EXPECT_EQ(Sql("slave", "select count(*) from containers where containerid='';"),
              *slave == '0' ? "1\n" : "0\n");
  }
  EXPECT_EQ(Pinged(seam.commands), std::vector<std::string>{kMasterAddr});
  EXPECT_TRUE(Logs().empty());
}

TEST_F(StoreContainerRows, StaleBrowserAndDesktopRowsAreReleasedOnTheTargetsDatabase) {
  const std::string released = ":web:u\nc1:web:u\nNULL:NULL:NULL\nNULL:NULL:NULL\nNULL:NULL:NULL\n"
                               "c5:lumobr_2:u\nc6:web_1:u\n";
  Connect();
  EXPECT_EQ(qor::DeleteLumoBRSql(kSlaveAddr, 1), 0);
  EXPECT_EQ(Kept("slave"), released);
  EXPECT_EQ(Kept("master"), untouched);
  EXPECT_EQ(qor::DeleteLumoBRSql(kMasterAddr, 0), 0);
  EXPECT_EQ(Kept("master"), released);
  EXPECT_TRUE(Logs().empty());
}

}  // namespace
}  // namespace qortest
