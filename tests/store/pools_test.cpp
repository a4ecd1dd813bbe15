// The pools against the two real servers: when ReconnectCluster builds, keeps and drops them and
// what it logs, and which database each target reaches.
#include "store/pools.h"

#include <chrono>
#include <ctime>
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

using StorePools = StoreTest;

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
