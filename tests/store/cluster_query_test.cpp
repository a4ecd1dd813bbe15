// The reads against the real databases: which rows each selector returns and in what order, how
// the columns land in the records, what happens to values that do not fit, and which database
// each read and the cycle loop's count reach.
#include "store/cluster_query.h"

#include <time.h>

#include <cstdlib>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "cli/json_listing.h"
#include "config/qorconf.h"
#include "store/pools.h"
#include "store_fixture.h"

namespace qortest {
namespace {

using qor::ActInfo;

// A cluster whose rows are inserted out of order. "odd" carries a role text outside the three
// codes (role_id 0), so "order by role" and "order by role_id" disagree about it; "other" has no
// address and the nameless row no host name, for the like_ selectors.
const std::vector<Row> kCluster = {
    {"zeta", "node.example", "member", 200, 128, "0.30"},
    {"node_c", "10.0.0.3", "member", 200, 16, "0.50"},
    {"other", "", "member", 100, 1, "0.60"},
    {"shost", "127.0.0.2", "slave", 100, 4, "0.99"},
    {"node_a", "10.0.0.1", "member", 100, 2, "1000.00"},
    {"", "10.0.0.8", "member", 200, 64, "0.20"},
    {"mhost", "127.0.0.1", "master", 100, 8, "0.75"},
    {"node_b", "10.0.0.2", "member", 300, 32, "0.10"},
    {"odd", "10.0.0.9", "standby", 200, 3, "5.00"},
};

const std::vector<std::string> kAll = {"odd",    "mhost",  "shost", "",    "node_a",
                                       "node_b", "node_c", "other", "zeta"};

using StoreClusterQuery = StoreTest;

TEST_F(StoreClusterQuery, SelectorsReturnRowsInOrder) {
  struct Case {
    const char* cond;
    std::vector<std::string> hosts;
    int servers;
    int cores;
  } cases[] = {
      {"-all", kAll, 4, 15},
      {"", kAll, 4, 15},
      {"-active", {"mhost", "shost", "node_a", "other"}, 4, 15},
      {"-inactive", {"odd", "", "node_c", "zeta"}, 0, 0},
      {"-not_master", {"odd", "shost", "", "node_a", "node_b", "node_c", "other", "zeta"}, 3, 7},
      {"-not_slave", {"odd", "mhost", "", "node_a", "node_b", "node_c", "other", "zeta"}, 3, 11},
      {"-master_slave", {"mhost", "shost", "odd"}, 2, 12},
      {"-active_all_master_slave", {"mhost", "shost"}, 2, 12},
      {"-master", {"mhost"}, 1, 8},
      {"-slave", {"shost"}, 1, 4},
      {"-member", {"", "node_a", "node_b", "node_c", "other", "zeta"}, 2, 3},
      // Lowest stored load among active rows below 1000: 0.60 beats 0.75 and 0.99 only on the
      // decimals, which the records no longer hold.
      {"-target", {"other"}, 1, 1},
      {"like_node%", {"node_a", "node_b", "node_c", "zeta"}, 1, 2},
      {"like_", {"", "other"}, 1, 1},
      {"node_b", {"node_b"}, 0, 0},
      {"node_", {}, 0, 0},
  };
  Sql("master", InsertRows(kCluster));
  Connect();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.cond);
    ActInfo info{7, 7, 7};
    ASSERT_EQ(Select(c.cond, &info), qor::kDbOk);
    EXPECT_EQ(std::tuple(Hosts(info, selected), info.servers, info.cores),
              std::tuple(c.hosts, c.servers, c.cores));
    EXPECT_TRUE(Logs().empty());
  }
}

TEST_F(StoreClusterQuery, ColumnsConvertIntoTheRecord) {
  // Central European time, summer time from March to October: noon in July is 10:00 UTC.
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  Sql("master",
      "insert into clusters (id, hostname, ipaddress, clusterid, role, role_id, status, "
      "dbwrite_count, last_writemill, tpl_updatemill, tpl_syncmill, tpl_syncstate, cpuinfo, cpus, "
      "cpuphycores, cpucores, cpuprocs, cpuloadavg, cpuloadavgpp, containers, updated_at, "
      "qortimemill, cpuutil, memutil, diskutil, qorver) values "
      "(7, 'conv', '10.1.1.1', 'c-7', 'member', 102, 100, 12345678901, 1700000000123, "
      "1700000000456, 1700000000789, 300, 'Model X @ 2.0GHz', 2, 12, 24, 48, 3.75, 0.75, 17, "
      "'2023-07-01 12:00:00', 1690000000999, 0.99, 1.00, 12.50, '4.0.16');");
  Connect();
  ActInfo info;
  int rc = Select("-all", &info);
  unsetenv("TZ");
  tzset();
  ASSERT_EQ(rc, qor::kDbOk);
  ASSERT_EQ(info.count, 1);
  // Numbers by atoi (fractions lost); 12:00 in July read as 10:00 UTC, summer time kept. Every
  // field shown, as -lj shows a record.
  std::string record;
  qor::AppendRowJson(record, *selected[0], 1688205600);
  EXPECT_EQ(
      record,
      R"({"id":7,"hostname":"conv","ipaddress":"10.1.1.1","clusterid":"c-7","role":"member",)"
      R"("role_id":102,"status":100,"dbwrite_count":12345678901,"last_writemill":1700000000123,)"
      R"("tpl_updatemill":1700000000456,"tpl_syncmill":1700000000789,"tpl_syncstate":300,)"
      R"("cpuinfo":"Model X @ 2.0GHz","cpus":2,"cpuphycores":12,"cpucores":24,"cpuprocs":48,)"
      R"("cpuloadavg":3,"cpuloadavgpp":0,"containers":17,"cpuutil":0,"memutil":1,"diskutil":12,)"
      R"("qorver":"4.0.16","updated_at":1688205600,"qortimemill":1690000000999,"age_seconds":0})");
}

TEST_F(StoreClusterQuery, OnlySixtyFourRowsAreStoredAndCountedFromOneFetch) {
  std::vector<Row> rows;
  for (int i = 100; i < 170; ++i) {
    rows.push_back({"h" + std::to_string(i), "10.3.0.1", "member", 100, 1, "0.50"});
  }
  Sql("master", InsertRows(rows));
  Connect();
  // The whole table comes in one fetch, not in a round trip per row.
  auto fetches = [] { return Sql("master", "show global status like 'Com_stmt_fetch';"); };
  const std::string before = fetches();
  ActInfo info;
  ASSERT_EQ(Select("-all", &info), qor::kDbOk);
  EXPECT_EQ(std::stoi(fetches().substr(15)) - std::stoi(before.substr(15)), 1);
  EXPECT_EQ(std::tuple(info.count, info.servers, info.cores), std::tuple(64, 64, 64));
  EXPECT_STREQ(selected[63]->hostname.c_str(), "h163");
  EXPECT_EQ(Logs(), std::vector<std::string>{"getclustersql more than 64 rows on 127.0.0.1"});
}

// Which database a read of each reaches, pool or no pool, and what a read without one logs.
TEST_F(StoreClusterQuery, TargetPicksTheDatabase) {
  const std::set<std::string> none, m = {kMasterAddr}, s = {kSlaveAddr},
                                    both = {kMasterAddr, kSlaveAddr};
  constexpr qor::Db kM = qor::Db::kMaster, kS = qor::Db::kSlave;
  struct Case {
    const char* name;
    bool standalone;
    std::set<std::string> down;  // addresses silent while the pools are built
    qor::Db db;
    int rc;
    std::vector<std::string> hosts;
    int side;  // the database the rows came from
  } cases[] = {{"master's with both pools", false, none, kM, 0, {"on-master"}, 0},
               {"master's without mpool", false, m, kM, 0, {"on-slave"}, 1},
               {"slave's with both pools", false, none, kS, 0, {"on-slave"}, 1},
               {"slave's without spool", false, s, kS, 500, {}, -1},
               {"master's without pools", false, both, kM, 500, {}, -1},
               {"standalone", true, none, kM, 0, {"on-master"}, 0}};
  Sql("master", InsertRows({{"on-master", "127.0.0.1", "master", 100, 1, "0"}}));
  Sql("slave", InsertRows({{"on-slave", "127.0.0.2", "slave", 100, 1, "0"}}));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    qor::Cluster = c.standalone ? 0 : 1;
    qor::cnf.cluster = c.standalone ? "0" : "1";
    qor::CloseConnectionPool();
    Connect(c.down);
    qor::ActInfo info{7, 7, 7};
    EXPECT_EQ(Select("-all", &info, c.db), c.rc);
    EXPECT_EQ(Hosts(info, selected), c.hosts);
    EXPECT_EQ(info.side, c.side);
    EXPECT_EQ(Logs(),
              c.rc == qor::kDbNoConnection
                  ? std::vector<std::string>{"getclustersql db connection error to 127.0.0.1"}
                  : std::vector<std::string>{});
  }
}

// The row count of the cycle loop: which database it reaches for each role and reachability. Three
// rows on the master's database, two on the slave's.
TEST_F(StoreClusterQuery, CountsOnTheDatabaseTheRoleReaches) {
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
