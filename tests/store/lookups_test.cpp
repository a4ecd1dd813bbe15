// CheckCluster against the two real databases: which of master and slave is active, asked of
// the master's database or, with the master silent, of the slave's.
#include "store/lookups.h"

#include <set>
#include <string>
#include <vector>

#include "store_fixture.h"

namespace qortest {
namespace {

const Row kMaster = {"mhost", "127.0.0.1", "master", 100, 8, "0.50"};
const Row kSlave = {"shost", "127.0.0.2", "slave", 100, 4, "0.50"};
const Row kMasterInactive = {"mhost", "127.0.0.1", "master", 200, 8, "0.50"};
const Row kSecondMaster = {"m2host", "127.0.0.3", "master", 100, 8, "0.50"};
const Row kMember = {"node-a", "10.0.0.5", "member", 100, 2, "0.50"};

using StoreLookups = StoreTest;

// A database that cannot be reached counts as no rows: which one a target reaches without its
// pool is the pools' table.
TEST_F(StoreLookups, CheckClusterTellsWhichOfMasterAndSlaveIsActive) {
  struct Case {
    const char* name;
    std::vector<Row> masterRows, slaveRows;
    std::set<std::string> silent;  // not answering when CheckCluster pings
    int cluster, rc, masterAlive, slaveAlive;
    int pings;  // of the master's address
  } cases[] = {
      {"both active", {kMaster, kSlave, kMember}, {}, {}, 1, 0, 1, 1, 1},
      {"master only", {kMaster, kMember}, {}, {}, 1, 0, 1, 0, 1},
      {"slave only", {kMasterInactive, kSlave}, {}, {}, 1, 0, 0, 1, 1},
      {"two masters", {kMaster, kSlave, kSecondMaster}, {}, {}, 1, 1, 0, 0, 1},
      {"cluster off", {kMaster, kSlave}, {}, {}, 0, 1, 0, 0, 0},
      // A silent master sends the question to the slave's database.
      {"master silent", {kMaster, kSlave}, {kSlave}, {kMasterAddr}, 1, 0, 0, 1, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fill(c.masterRows, c.slaveRows);
    seam.blocked = c.silent;
    int masterAlive = 7, slaveAlive = 7;
    EXPECT_EQ(qor::CheckCluster(&masterAlive, &slaveAlive, c.cluster, kMasterAddr, kSlaveAddr,
                                "qordirect", QOR_TESTDB_PASSWORD, qor::ClustsTemp),
              c.rc);
    EXPECT_EQ(masterAlive, c.masterAlive);
    EXPECT_EQ(slaveAlive, c.slaveAlive);
    EXPECT_EQ(Pinged(seam.commands), std::vector<std::string>(c.pings, kMasterAddr));
  }
}

}  // namespace
}  // namespace qortest
