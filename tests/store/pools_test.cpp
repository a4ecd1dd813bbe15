// The pools against the two real servers: which database each target of a read reaches, pool
// or no pool, and what a read without one logs.
#include "store/pools.h"

#include <set>
#include <string>
#include <vector>

#include "config/qorconf.h"
#include "store/cluster_query.h"
#include "store_fixture.h"

namespace qortest {
namespace {

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
    int side;  // the database the rows came from
  } cases[] = {{"target 0 with both pools", false, none, 0, 0, {"on-master"}, 0},
               {"target 0 without mpool", false, m, 0, 0, {"on-slave"}, 1},
               {"target 1 with both pools", false, none, 1, 0, {"on-slave"}, 1},
               {"target 1 without spool", false, s, 1, 500, {}, -1},
               {"target 0 without pools", false, both, 0, 500, {}, -1},
               {"target 2 in a cluster", false, none, 2, 0, {}, -1},
               {"standalone target 2", true, none, 2, 0, {"on-master"}, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    qor::Cluster = c.standalone ? 0 : 1;
    qor::cnf.cluster = c.standalone ? "0" : "1";
    Fill({{"on-master", "127.0.0.1", "master", 100, 1, "0"}},
         {{"on-slave", "127.0.0.2", "slave", 100, 1, "0"}}, c.down);
    qor::ActInfo info{7, 7, 7};
    EXPECT_EQ(Select("-all", &info, c.target), c.rc);
    EXPECT_EQ(Hosts(info, qor::ClustsTemp), c.hosts);
    EXPECT_EQ(info.side, c.side);
    EXPECT_EQ(Logs(),
              c.rc == qor::kDbNoConnection
                  ? std::vector<std::string>{"getclustersql db connection error to 127.0.0.1"}
                  : std::vector<std::string>{});
  }
}

}  // namespace
}  // namespace qortest
