// What every read reports when its database lacks the table or has stopped. The shared pair
// keeps running: a third server of this test's own on 127.0.0.3 plays the slave and is stopped
// during the test.
#include <functional>
#include <string>
#include <vector>

#include "config/qorconf.h"
#include "metrics/containers.h"
#include "store/cluster_query.h"
#include "store/pools.h"
#include "store_fixture.h"

namespace qortest {
namespace {

struct Read {
  const char* name;
  std::function<int()> call;
  int missingRc;
  const char* missingLog;
  int stoppedRc;
  const char* stoppedLog;
};

using StoreFailures = StoreTest;

TEST_F(StoreFailures, MissingTableAndStoppedServer) {
  ThirdServer third;
  ASSERT_TRUE(third.started()) << "see " << QOR_TESTDB_DIR << "/third.log";
  UseTestCluster("slave", kThirdAddr);
  qor::cnf.clustslave = kThirdAddr;
  Connect({kMasterAddr});
  ASSERT_EQ(qor::mpool, nullptr);
  ASSERT_NE(qor::spool, nullptr);
  Sql("third", "drop table clusters; drop table containers;");

  qor::ActInfo info;
  int count = 77;
  auto select = [&](int target) {
    info = qor::ActInfo{7, 7, 7};
    qor::ClustsTemp[0]->hostname = "untouched";
    int rc =
        qor::GetClusterSql(kThirdAddr, "qordirect", "", "-all", &info, qor::ClustsTemp, target);
    EXPECT_EQ(info.count, 0);
    EXPECT_EQ(info.servers, 0);
    EXPECT_EQ(info.cores, 0);
    EXPECT_STREQ(qor::ClustsTemp[0]->hostname.c_str(), "untouched");
    return rc;
  };
  const Read reads[] = {
      {"GetClusterSql target 0", [&] { return select(0); }, 501,
       "getclustersql db query error to 127.0.0.3", 500,
       "getclustersql db connection error to 127.0.0.3"},
      {"GetClusterSql target 1", [&] { return select(1); }, 501,
       "getclustersql db query error to 127.0.0.3", 500,
       "getclustersql db connection error to 127.0.0.3"},
      {"GetClustCountSql",
       [&] {
         int rc = qor::GetClustCountSql(kThirdAddr, &count);
         EXPECT_EQ(count, 77);
         return rc;
       },
       501, "getclustcountsql db query error", 500, "getclustcountsql db connection error"},
      {"getcontainers", [] { return qor::getcontainers(kThirdAddr); }, 501,
       "getcontainersdb db query error", 500, "getcontainers db connection error"},
      {"GetLumoContainerSql", [] { return qor::GetLumoContainerSql(); }, 0,
       "getlumocontainersql db query error", 0, "getlumocontainersql db connection error"},
  };

  for (const Read& r : reads) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(r.call(), r.missingRc);
    EXPECT_EQ(Logs(), std::vector<std::string>{r.missingLog});
  }
  // A member asks nothing: no query, so no query error either.
  qor::ClustRole = qor::kRoleMember;
  EXPECT_EQ(qor::GetLumoContainerSql(), 0);
  EXPECT_TRUE(Logs().empty());
  qor::ClustRole = qor::kRoleSlave;

  ASSERT_TRUE(third.Stop());
  // The address still answers ping, so the pool stays and every read fails on its connection.
  qor::ReconnectCluster();
  EXPECT_NE(qor::spool, nullptr);
  Logs();
  for (const Read& r : reads) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(r.call(), r.stoppedRc);
    EXPECT_EQ(Logs(), std::vector<std::string>{r.stoppedLog});
  }
}

}  // namespace
}  // namespace qortest
