// What every read and write reports when its database lacks the tables, when every connection
// fails its ping, and when the database has stopped. The shared pair keeps running: a third
// server of this test's own on 127.0.0.3 plays the slave and is stopped during the test.
#include <functional>
#include <string>
#include <vector>

#include "config/qorconf.h"
#include "metrics/containers.h"
#include "store/cluster_query.h"
#include "store/cluster_writes.h"
#include "store/pools.h"
#include "store_fixture.h"
#include "support/fakes.h"

namespace qortest {
namespace {

struct Op {
  const char* name;
  std::function<int()> call;
  int missingRc;  // a read: 501 (the lumo count 0); a write: 0 after its statement message
  const char* missingLog;
  int stoppedRc;  // no usable connection
  const char* stoppedLog;
};

using StoreFailures = StoreTest;

TEST_F(StoreFailures, MissingTableFailingPingAndStoppedServer) {
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
  qor::ClustRecord rec = SampleRecord();
  qor::ClustRecord* records[] = {&rec};
  const Op ops[] = {
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
      {"InsertClusterSql", [&] { return qor::InsertClusterSql(kThirdAddr, 1, 1, rec); }, 0,
       "insertclustersql db insert error", 500, "insertclustersql db connection error"},
      {"UpdateClusterSql", [&] { return qor::UpdateClusterSql(kThirdAddr, records, 0, 1, 1, 1); },
       0, "updateclustersql db update error", 500, "updateclustersql db connection error"},
      {"SetStatusClusterSql", [] { return qor::SetStatusClusterSql(kThirdAddr, 1, 200); }, 0,
       "setstatusclustersql db update error", 500, "setstatusclustersql db connection error"},
      {"SetOldClusterSvrSql", [] { return qor::SetOldClusterSvrSql(kThirdAddr, "node-a"); }, 0,
       "setoldclustersvrsql db update error", 500, "setoldclustersvrsql db connection error"},
      {"SetTplOldClusterSvrSql", [] { return qor::SetTplOldClusterSvrSql(kThirdAddr, "node-a"); },
       0, "settploldclustersvrsql db update error", 500,
       "settploldclustersvrsql db connection error"},
      {"UpdateTplsyncSql", [] { return qor::UpdateTplsyncSql(kThirdAddr, "node-a", 1, 100); }, 0,
       "updatetplsyncsql db update error", 500, "updatetplsyncsql db connection error"},
      {"RemoveClusterSvrsSql", [] { return qor::RemoveClusterSvrsSql(kThirdAddr, "node-a"); }, 0,
       "removeclustersvrssql db delete error", 500, "removeclustersvrssql db connection error"},
      {"ClearClusterSql", [] { return qor::ClearClusterSql(kThirdAddr); }, 0,
       "clearclustersql db truncate error", 500, "clearclustersql db connection error"},
      {"SweepClustersql", [] { return qor::SweepClustersql(kThirdAddr); }, 0,
       "deleteclusterssql db delete error", 500, "deleteclusterssql db connection error"},
  };
  auto expectNoConnection = [&] {
    for (const Op& o : ops) {
      SCOPED_TRACE(o.name);
      EXPECT_EQ(o.call(), o.stoppedRc);
      EXPECT_EQ(Logs(), std::vector<std::string>{o.stoppedLog});
    }
  };

  for (const Op& o : ops) {
    SCOPED_TRACE(o.name);
    EXPECT_EQ(o.call(), o.missingRc);
    EXPECT_EQ(Logs(), std::vector<std::string>{o.missingLog});
  }
  // A member asks nothing: no query, so no query error either.
  qor::ClustRole = qor::kRoleMember;
  EXPECT_EQ(qor::GetLumoContainerSql(), 0);
  EXPECT_TRUE(Logs().empty());
  qor::ClustRole = qor::kRoleSlave;

  // The server drops every new session at once, so each connection the pool makes fails its
  // ping. Each must go back to the pool: once the server behaves, two can be held at a time,
  // while connections kept would have filled the library's twenty long before.
  Sql("third", "set global init_connect = 'select 1 from nowhere';");
  qor::CloseConnectionPool();
  Connect({kMasterAddr});
  ASSERT_NE(qor::spool, nullptr);
  expectNoConnection();
  expectNoConnection();
  Sql("third", "set global init_connect = '';");
  {
    qor::DbConn first(qor::spool), second(qor::spool);
    EXPECT_TRUE(first.usable());
    EXPECT_TRUE(second.usable());
  }

  ASSERT_TRUE(third.Stop());
  // The address still answers ping, so the pool stays and every operation fails on its
  // connection.
  qor::ReconnectCluster();
  EXPECT_NE(qor::spool, nullptr);
  Logs();
  expectNoConnection();
}

}  // namespace
}  // namespace qortest
