// Container counts from the containers table of the first open pool's database: all containers
// of a host, and this server's lumo browser and desktop containers.
#include "metrics/containers.h"

#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "config/qorconf.h"
#include "store/pools.h"
#include "store_fixture.h"

namespace qortest {
namespace {

class StoreContainersBase : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    // '_' in the lumo patterns is a wildcard too: lumobrX counts, bare lumobr does not.
    Sql("master",
        "insert into containers (containerid, containername, hostname) values "
        "('c1', 'web1', '127.0.0.1'), ('c2', 'lumobr_1', '127.0.0.1'), "
        "('c3', 'lumodt_7', '127.0.0.1'), ('c4', 'lumobrX', '127.0.0.1'), "
        "('c5', 'lumobr', '127.0.0.1'), ('c6', 'xlumodt_1', '127.0.0.1'), "
        "('', 'lumobr_9', '127.0.0.1'), (null, 'lumodt_8', '127.0.0.1'), "
        "('c7', 'lumobr_2', '127.0.0.2'), ('c8', 'lumodt_3', '127.0.0.2');");
    Sql("slave",
        "insert into containers (containerid, containername, hostname) values "
        "('s1', 'lumobr_1', '127.0.0.2'), ('s2', 'web', '127.0.0.2'), "
        "('s3', 'lumobr_1', '127.0.0.1'), ('', 'lumodt_1', '127.0.0.9');");
  }
};

const std::set<std::string> kNone;
const std::set<std::string> kMasterDown = {kMasterAddr};

struct HostCase {
  std::set<std::string> down;
  const char* host;
  int count;
};

void PrintTo(const HostCase& c, std::ostream* os) {
  *os << c.host << (c.down.empty() ? " with both pools" : " without mpool");
}

class StoreGetContainers : public StoreContainersBase,
                           public ::testing::WithParamInterface<HostCase> {};

TEST_P(StoreGetContainers, CountsTheHostsRowsThatHoldAContainer) {
  const HostCase& c = GetParam();
  Connect(c.down);
  EXPECT_EQ(qor::getcontainers(c.host), c.count);
  EXPECT_TRUE(Logs().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Store, StoreGetContainers,
    ::testing::Values(HostCase{kNone, "127.0.0.1", 6}, HostCase{kNone, "127.0.0.2", 2},
                      HostCase{kNone, "127.0.0.9", 0}, HostCase{kNone, "127.0.0.1' or '1'='1", 0},
                      HostCase{kMasterDown, "127.0.0.1", 1}, HostCase{kMasterDown, "127.0.0.2", 2},
                      HostCase{kMasterDown, "127.0.0.9", 0}));

struct LumoCase {
  const char* name;
  const char* role;
  const char* dbsvr;  // standalone mode when set
  std::set<std::string> down;
  int count;
};

void PrintTo(const LumoCase& c, std::ostream* os) {
  *os << c.name;
}

class StoreLumoContainers : public StoreContainersBase,
                            public ::testing::WithParamInterface<LumoCase> {};

TEST_P(StoreLumoContainers, CountsThisServersLumoContainers) {
  const LumoCase& c = GetParam();
  UseTestCluster(c.role, kMasterAddr);
  if (c.dbsvr != nullptr) {
    qor::Cluster = 0;
    qor::cnf.cluster = "0";
    qor::cnf.dbsvr = c.dbsvr;
  }
  Connect(c.down);
  EXPECT_EQ(qor::GetLumoContainerSql(), c.count);
  EXPECT_TRUE(Logs().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Store, StoreLumoContainers,
    ::testing::Values(LumoCase{"master", "master", nullptr, kNone, 5},
                      LumoCase{"slave via mpool", "slave", nullptr, kNone, 2},
                      LumoCase{"master without mpool", "master", nullptr, kMasterDown, 1},
                      LumoCase{"slave without mpool", "slave", nullptr, kMasterDown, 1},
                      LumoCase{"member", "member", nullptr, kNone, 0},
                      LumoCase{"standalone on the master", "master", kMasterAddr, kNone, 5},
                      LumoCase{"standalone on the slave", "member", kSlaveAddr, kNone, 1}));

using StoreContainers = StoreContainersBase;

TEST_F(StoreContainers, WithoutAPool) {
  EXPECT_EQ(qor::getcontainers(kMasterAddr), qor::kDbNoConnection);
  EXPECT_EQ(Logs(), std::vector<std::string>{"getcontainers db connection error"});

  EXPECT_EQ(qor::GetLumoContainerSql(), 0);
  EXPECT_TRUE(Logs().empty());

  qor::Cluster = 0;
  qor::cnf.cluster = "0";
  EXPECT_EQ(qor::GetLumoContainerSql(), 0);
  EXPECT_EQ(Logs(), std::vector<std::string>{"getlumocontainersql db connection error"});
}

}  // namespace
}  // namespace qortest
