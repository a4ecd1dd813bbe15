// The row count of the cycle loop: which database it reaches for each role and reachability,
// and the strext helper of the like_ selector.
#include <cstring>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "config/qorconf.h"
#include "store/cluster_query.h"
#include "store/pools.h"
#include "store_fixture.h"

namespace qortest {
namespace {

struct CountCase {
  const char* name;
  const char* role;
  std::set<std::string> downAtConnect;  // silent while the pools are built
  std::set<std::string> downAtCount;    // silent while counting
  int count;
  std::vector<std::string> pinged;
};

void PrintTo(const CountCase& c, std::ostream* os) {
  *os << c.name;
}

class StoreClustCount : public StoreTest, public ::testing::WithParamInterface<CountCase> {};

// Three rows on the master's database, two on the slave's.
TEST_P(StoreClustCount, CountsOnTheDatabaseTheRoleReaches) {
  const CountCase& c = GetParam();
  Sql("master", "insert into clusters (hostname) values ('a'), ('b'), ('c');");
  Sql("slave", "insert into clusters (hostname) values ('a'), ('b');");
  UseTestCluster(c.role, c.role == std::string("slave") ? kSlaveAddr : "127.0.0.7");
  Connect(c.downAtConnect);
  seam.blocked = c.downAtCount;
  int count = 77;
  EXPECT_EQ(qor::GetClustCount(&count), 0);
  EXPECT_EQ(count, c.count);
  EXPECT_EQ(Pinged(seam.commands), c.pinged);
  EXPECT_TRUE(Logs().empty());
}

const std::string M = kMasterAddr;
const std::string S = kSlaveAddr;

INSTANTIATE_TEST_SUITE_P(
    Store, StoreClustCount,
    ::testing::Values(
        CountCase{"master counts without ping", "master", {}, {M, S}, 3, {}},
        CountCase{"master without mpool counts by spool", "master", {M}, {M}, 2, {}},
        CountCase{"slave with its master", "slave", {}, {}, 3, {M}},
        CountCase{"slave whose master is gone", "slave", {M}, {M}, 2, {M, M, M}},
        // The address only decides whether to count: the first open pool is still mpool.
        CountCase{"slave whose master went silent", "slave", {}, {M}, 3, {M, M, M}},
        CountCase{"member with the master", "member", {}, {}, 3, {M}},
        CountCase{"member with the slave only", "member", {M}, {M}, 2, {M, M, M, S}},
        CountCase{"member reaching neither", "member", {M, S}, {M, S}, 0, {M, M, M, S, S, S}},
        CountCase{
            "member whose servers went silent", "member", {}, {M, S}, 0, {M, M, M, S, S, S}}));

using StoreClustCountSql = StoreTest;

TEST_F(StoreClustCountSql, WritesTheCountOnlyOnSuccess) {
  Sql("master", "insert into clusters (hostname) values ('a'), ('b');");
  int count = 77;
  EXPECT_EQ(qor::GetClustCountSql(kMasterAddr, &count), qor::kDbNoConnection);
  EXPECT_EQ(count, 77);
  EXPECT_EQ(Logs(), std::vector<std::string>{"getclustcountsql db connection error"});

  Connect();
  EXPECT_EQ(qor::GetClustCountSql(kSlaveAddr, &count), qor::kDbOk);
  EXPECT_EQ(count, 2);
  Sql("master", "delete from clusters;");
  EXPECT_EQ(qor::GetClustCountSql(kMasterAddr, &count), qor::kDbOk);
  EXPECT_EQ(count, 0);
}

TEST(StoreStrext, CopiesAPieceOrRefuses) {
  struct Case {
    const char* src;
    int start, len;
    int rc;
    const char* out;
  };
  const Case cases[] = {
      {"like_node%", 5, 10, 0, "node%"}, {"like_", 5, 5, 0, ""},      {"abcdef", 0, 3, 0, "abc"},
      {"abcdef", 4, 6, 0, "ef"},         {"abcdef", 6, 3, 0, ""},     {"abcdef", 9, 3, 0, ""},
      {"abcdef", 0, 0, 0, ""},           {"abcdef", 2, 7, 1, "keep"}, {"abcdef", -1, 2, 1, "keep"},
      {"abcdef", 2, -1, 1, "keep"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.src << " " << c.start << " " << c.len);
    char out[16] = "keep";
    EXPECT_EQ(qor::strext(out, sizeof out, c.src, c.start, c.len), c.rc);
    EXPECT_STREQ(out, c.out);
  }
}

}  // namespace
}  // namespace qortest
