// The row count of the cycle loop: which database it reaches for each role and reachability.
#include <set>
#include <string>
#include <vector>

#include "config/qorconf.h"
#include "store/cluster_query.h"
#include "store/pools.h"
#include "store_fixture.h"

namespace qortest {
namespace {

using StoreClustCount = StoreTest;

// Three rows on the master's database, two on the slave's.
TEST_F(StoreClustCount, CountsOnTheDatabaseTheRoleReaches) {
  const std::string M = kMasterAddr, S = kSlaveAddr;
  struct Case {
    const char* name;
    const char* role;
    std::set<std::string> downAtConnect;  // silent while the pools are built
    std::set<std::string> downAtCount;    // silent while counting
    int count;
    std::vector<std::string> pinged;
  } cases[] = {
      {"master counts without ping", "master", {}, {M, S}, 3, {}},
      {"slave with its master", "slave", {}, {}, 3, {M}},
      {"slave whose master is gone", "slave", {M}, {M}, 2, {M, M, M}},
      // The address only decides whether to count: the first open pool is still mpool.
      {"slave whose master went silent", "slave", {}, {M}, 3, {M, M, M}},
      {"member with the master", "member", {}, {}, 3, {M}},
      {"member with the slave only", "member", {M}, {M}, 2, {M, M, M, S}},
      {"member whose servers went silent", "member", {}, {M, S}, 0, {M, M, M, S, S, S}},
  };
  Sql("master", "insert into clusters (hostname) values ('a'), ('b'), ('c');");
  Sql("slave", "insert into clusters (hostname) values ('a'), ('b');");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    UseTestCluster(c.role, c.role == std::string("slave") ? kSlaveAddr : "127.0.0.7");
    qor::CloseConnectionPool();
    Connect(c.downAtConnect);
    seam.blocked = c.downAtCount;
    int count = 77;
    EXPECT_EQ(qor::GetClustCount(&count), 0);
    EXPECT_EQ(count, c.count);
    EXPECT_EQ(Pinged(seam.commands), c.pinged);
    EXPECT_TRUE(Logs().empty());
  }
}

}  // namespace
}  // namespace qortest
