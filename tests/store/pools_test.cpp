// The pools against the two real servers: when ReconnectCluster builds, keeps and drops them and
// what it logs, and which database each target reaches.
#include "store/pools.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "config/qorconf.h"
#include "store/cluster_query.h"
#include "store_fixture.h"

namespace qortest {
namespace {

using qor::mpool;
using qor::spool;

struct SideCase {
  const char* role;  // "master" or "slave"
  const char* address;
  const char* pool;  // "mpool" or "spool"
  int connectionPool;
};

void PrintTo(const SideCase& c, std::ostream* os) {
  *os << c.role << " with ConnectionPool " << c.connectionPool;
}

class StoreReconnect : public StoreTest, public ::testing::WithParamInterface<SideCase> {
 protected:
  QzPool*& Pool() { return std::string(GetParam().role) == "master" ? mpool : spool; }
  QzPool*& OtherPool() { return std::string(GetParam().role) == "master" ? spool : mpool; }
};

// The notices ReconnectCluster logs while building the slave's pool in a running daemon.
std::vector<std::string> SlaveNotices() {
  return {"reconnect_mysql(3) cluster=1 mpool=" + Handle(mpool) + " spool=(nil) (5)",
          "reconnect_mysql(4) starting cluster=1 mpool=" + Handle(mpool) +
              " spool=" + Handle(spool) + " toadr=127.0.0.2(5)"};
}

TEST_P(StoreReconnect, DropsASilentServersPoolAndRebuildsItWhenItAnswers) {
  const SideCase& c = GetParam();
  const bool daemon = c.connectionPool == 5;
  qor::ConnectionPool = c.connectionPool;

  qor::ReconnectCluster();
  ASSERT_NE(mpool, nullptr);
  ASSERT_NE(spool, nullptr);
  std::vector<std::string> built;
  if (daemon) {
    built = {"reconnect_mysql(1) cluster=1 mpool=(nil) spool=(nil) (5)",
             "reconnect_mysql(2) starting cluster=1 mpool=" + Handle(mpool) +
                 " spool=(nil) toadr=127.0.0.1(5)"};
    for (const std::string& n : SlaveNotices()) built.push_back(n);
  }
  EXPECT_EQ(Logs(), built);
  EXPECT_EQ(Pinged(seam.commands), (std::vector<std::string>{"127.0.0.1", "127.0.0.2"}));

  // Both answering: only pings, the same pools.
  QzPool* const m = mpool;
  QzPool* const s = spool;
  seam.commands.clear();
  qor::ReconnectCluster();
  EXPECT_EQ(mpool, m);
  EXPECT_EQ(spool, s);
  EXPECT_TRUE(Logs().empty());
  EXPECT_EQ(Pinged(seam.commands), (std::vector<std::string>{"127.0.0.1", "127.0.0.2"}));

  QzPool* const other = OtherPool();
  const std::string failed =
      std::string("Ping ") + c.role + "(" + c.address + ") failed in ReconnectCluster. ";
  seam.blocked = {c.address};
  seam.commands.clear();
  qor::ReconnectCluster();
  EXPECT_EQ(Pool(), nullptr);
  EXPECT_EQ(OtherPool(), other);
  EXPECT_EQ(Logs(), std::vector<std::string>{failed + "Made " + c.pool + " null"});
  EXPECT_EQ(static_cast<int>(std::count(seam.commands.begin(), seam.commands.end(),
                                        std::string("/bin/ping -c 1 -w 1 ") + c.address)),
            3);

  qor::ReconnectCluster();
  EXPECT_EQ(Pool(), nullptr);
  EXPECT_EQ(Logs(), std::vector<std::string>{failed + c.pool + " is already null"});

  seam.blocked.clear();
  qor::ReconnectCluster();
  ASSERT_NE(Pool(), nullptr);
  EXPECT_EQ(OtherPool(), other);
  std::vector<std::string> rebuilt;
  if (daemon && std::string(c.role) == "slave") rebuilt = SlaveNotices();
  if (daemon && std::string(c.role) == "master") {
    rebuilt = {"reconnect_mysql(1) cluster=1 mpool=(nil) spool=" + Handle(spool) + " (5)",
               "reconnect_mysql(2) starting cluster=1 mpool=" + Handle(mpool) +
                   " spool=" + Handle(spool) + " toadr=127.0.0.1(5)"};
  }
  EXPECT_EQ(Logs(), rebuilt);

  // The rebuilt pool reaches its database.
  qor::ActInfo info;
  EXPECT_EQ(Select("-all", &info, std::string(c.role) == "master" ? 0 : 1), qor::kDbOk);
}

INSTANTIATE_TEST_SUITE_P(Store, StoreReconnect,
                         ::testing::Values(SideCase{"slave", kSlaveAddr, "spool", 5},
                                           SideCase{"master", kMasterAddr, "mpool", 5},
                                           SideCase{"slave", kSlaveAddr, "spool", 1},
                                           SideCase{"master", kMasterAddr, "mpool", 1}));

using StorePools = StoreTest;

TEST_F(StorePools, WrongPasswordLeavesThePoolsEmpty) {
  qor::cnf.dbpwd = "wrong";
  qor::ReconnectCluster();
  EXPECT_EQ(mpool, nullptr);
  EXPECT_EQ(spool, nullptr);
  EXPECT_EQ(Logs(), (std::vector<std::string>{"Connection Failure mpool to 127.0.0.1",
                                              "Connection Failure spool to 127.0.0.2"}));
}

// An error the library documents as fatal ends the process with status 1 after its message:
// here an assertion of the library raised where no handler of ours waits for it.
TEST_F(StorePools, AFatalLibraryErrorEndsTheProcess) {
  qor::ConnectionPool = -1;
  EXPECT_EXIT(qor::ReconnectCluster(), testing::ExitedWithCode(1), "");
  std::vector<std::string> logs = Logs();
  ASSERT_EQ(logs.size(), 1u);
  EXPECT_EQ(logs[0].rfind("libzdb: AssertException", 0), 0u) << logs[0];
}

TEST_F(StorePools, StandaloneBuildsTheMasterPoolWithoutPing) {
  qor::Cluster = 0;
  qor::cnf.cluster = "0";
  qor::cnf.dbsvr = kMasterAddr;
  qor::ConnectionPool = 5;
  // Standalone mode does not ask: a silent address changes nothing.
  seam.blocked = {kMasterAddr, kSlaveAddr};
  qor::ReconnectCluster();
  ASSERT_NE(mpool, nullptr);
  EXPECT_EQ(spool, nullptr);
  EXPECT_EQ(Logs(),
            (std::vector<std::string>{"reconnect_mysql(5) cluster=0 mpool=(nil) spool=(nil) (5)",
                                      "reconnect_mysql(6) starting cluster=0 mpool=" +
                                          Handle(mpool) + " spool=(nil) toadr=127.0.0.1(5)"}));
  QzPool* const m = mpool;
  qor::ReconnectCluster();
  EXPECT_EQ(mpool, m);
  EXPECT_TRUE(Logs().empty());
  EXPECT_TRUE(seam.commands.empty());
}

TEST_F(StorePools, TargetPicksTheDatabase) {
  const std::set<std::string> none, m = {kMasterAddr}, s = {kSlaveAddr},
                                    both = {kMasterAddr, kSlaveAddr};
  struct Case {
    const char* name;
    bool standalone;
    std::set<std::string> down;  // addresses silent while the pools are built
    int target;
    int rc;
    std::vector<std::string> hosts;
  } cases[] = {{"target 0 with both pools", false, none, 0, 0, {"on-master"}},
               {"target 0 without mpool", false, m, 0, 0, {"on-slave"}},
               {"target 1 with both pools", false, none, 1, 0, {"on-slave"}},
               {"target 1 without spool", false, s, 1, 500, {}},
               {"target 0 without pools", false, both, 0, 500, {}},
               {"target 2 in a cluster", false, none, 2, 0, {}},
               {"target -1 in a cluster", false, none, -1, 0, {}},
               {"standalone target 1", true, none, 1, 0, {"on-master"}},
               {"standalone target 2", true, none, 2, 0, {"on-master"}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    qor::Cluster = c.standalone ? 0 : 1;
    qor::cnf.cluster = c.standalone ? "0" : "1";
    Fill({{"on-master", "127.0.0.1", "master", 100, 100, 1, "0"}},
         {{"on-slave", "127.0.0.2", "slave", 101, 100, 1, "0"}}, c.down);
    qor::ClustsTemp[0]->hostname = "untouched";
    qor::ActInfo info{7, 7, 7};
    EXPECT_EQ(Select("-all", &info, c.target), c.rc);
    EXPECT_EQ(Hosts(info, qor::ClustsTemp), c.hosts);
    EXPECT_EQ(info.servers, static_cast<int>(c.hosts.size()));
    EXPECT_EQ(Logs(),
              c.rc == qor::kDbNoConnection
                  ? std::vector<std::string>{"getclustersql db connection error to 127.0.0.1"}
                  : std::vector<std::string>{});
    EXPECT_STREQ(qor::ClustsTemp[0]->hostname.c_str(),
                 c.hosts.empty() ? "untouched" : c.hosts[0].c_str());
  }
}

// The master's database on a third server of the test's own, which hangs (SIGSTOP) for a while.
TEST_F(StorePools, AHungDatabaseCostsOneBoundedWaitAndItsAnsweringSinceFollows) {
  ThirdServer third;
  ASSERT_TRUE(third.started()) << "see " << QOR_TESTDB_DIR << "/third.log";
  qor::cnf.clustmaster = kThirdAddr;
  Sql("slave", InsertRows({{"on-slave", "127.0.0.2", "slave", 101, 100, 1, "0"}}));
  auto seconds = [](auto call) {
    auto t0 = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  };
  int count = 0;
  qor::ActInfo info;

  // A pool dropped, then rebuilt: the database answers again from the rebuild on.
  Connect({kThirdAddr});
  ASSERT_EQ(mpool, nullptr);
  seam.blocked.clear();
  time_t rebuilt = time(nullptr);
  qor::ReconnectCluster();
  ASSERT_NE(mpool, nullptr);
  const int64_t since = qor::DbAnsweringSince(0);
  EXPECT_GE(since, rebuilt);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  EXPECT_EQ(qor::DbAnsweringSince(0), since);

  // Hung: the first call waits its bound in vain, the rest of the round passes mpool over.
  ASSERT_TRUE(third.Pause(true));
  double waited = seconds([&] { EXPECT_EQ(qor::GetClustCountSql(kThirdAddr, &count), 500); });
  EXPECT_GE(waited, 1.5);
  EXPECT_LE(waited, 3.5);
  EXPECT_LT(seconds([&] { EXPECT_EQ(Select("-all", &info, 0), 0); }), 0.5);
  EXPECT_EQ(Hosts(info, qor::ClustsTemp), std::vector<std::string>{"on-slave"});
  // Not answering: nothing before the current second counts.
  time_t now = time(nullptr);
  EXPECT_GE(qor::DbAnsweringSince(0), now);
  EXPECT_LE(qor::DbAnsweringSince(0), time(nullptr));
  EXPECT_EQ(Logs(), std::vector<std::string>{"getclustcountsql db connection error"});

  // Answering again, and given its time again by the next round.
  ASSERT_TRUE(third.Pause(false));
  time_t back = time(nullptr);
  qor::ReconnectCluster();
  EXPECT_EQ(qor::GetClustCountSql(kThirdAddr, &count), 0);
  EXPECT_GE(qor::DbAnsweringSince(0), back);
  EXPECT_GT(qor::DbAnsweringSince(0), since);
}

}  // namespace
}  // namespace qortest
