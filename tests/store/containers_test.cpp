// Container counts from the containers table of the first open pool's database: all containers
// of a host, and this server's lumo browser and desktop containers.
#include "metrics/containers.h"

#include <set>
#include <string>
#include <vector>

#include "config/processors.h"
#include "config/qorconf.h"
#include "metrics/cpuinfo.h"
#include "store/pools.h"
#include "store_fixture.h"

namespace qortest {
namespace {

class StoreContainers : public StoreTest {
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

const std::set<std::string> kNone, kMasterDown = {kMasterAddr};

TEST_F(StoreContainers, GetcontainersCountsTheHostsRowsThatHoldAContainer) {
  struct Case {
    std::set<std::string> down;
    const char* host;
    int count;
  } cases[] = {{kNone, "127.0.0.1", 6},       {kNone, "127.0.0.2", 2},
               {kNone, "127.0.0.9", 0},       {kNone, "127.0.0.1' or '1'='1", 0},
               {kMasterDown, "127.0.0.1", 1}, {kMasterDown, "127.0.0.2", 2},
               {kMasterDown, "127.0.0.9", 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.host << " down " << c.down.size());
    qor::CloseConnectionPool();
    Connect(c.down);
    EXPECT_EQ(qor::getcontainers(c.host), c.count);
    EXPECT_TRUE(Logs().empty());
  }
}

TEST_F(StoreContainers, LumoCountsThisServersLumoContainers) {
  struct Case {
    const char* name;
    const char* role;
    const char* dbsvr;  // standalone mode when set
    std::set<std::string> down;
    int count;
  } cases[] = {{"master", "master", nullptr, kNone, 5},
               {"slave via mpool", "slave", nullptr, kNone, 2},
               {"master without mpool", "master", nullptr, kMasterDown, 1},
               {"slave without mpool", "slave", nullptr, kMasterDown, 1},
               {"member", "member", nullptr, kNone, 0},
               {"standalone on the master", "master", kMasterAddr, kNone, 5},
               {"standalone on the slave", "member", kSlaveAddr, kNone, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    UseTestCluster(c.role, kMasterAddr);
    if (c.dbsvr != nullptr) {
      qor::Cluster = 0;
      qor::cnf.cluster = "0";
      qor::cnf.dbsvr = c.dbsvr;
    }
    qor::CloseConnectionPool();
    Connect(c.down);
    EXPECT_EQ(qor::GetLumoContainerSql(), c.count);
    EXPECT_TRUE(Logs().empty());
  }
}

// The weighted load classifies the containers that are not this server's own lumo containers:
// 11 here, of which the master's database holds 5 lumo ones of the master's, so 6; a member
// subtracts nothing. 6 is below a limit of 7 and not below one of 6.
TEST_F(StoreContainers, WeightedLoadLeavesOutTheOwnLumoContainers) {
  struct Case {
    const char* role;
    int maxlimithi;
    bool full;
  } cases[] = {{"master", 7, false}, {"master", 6, true}, {"member", 7, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.role << " below " << c.maxlimithi);
    UseTestCluster(c.role, kMasterAddr);
    qor::cnf.maxlimitlo = qor::cnf.maxlimit = qor::cnf.maxlimithi = c.maxlimithi;
    qor::Containers = 11;
    Connect();
    EXPECT_EQ(qor::GetCpuData(), 0);
    EXPECT_EQ(qor::Cpu.loadavgpp == 1000.0f, c.full) << qor::Cpu.loadavgpp;
  }
}

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
