// CheckCluster against the two real databases: which of master and slave is active, asked of
// the master's database or, with the master silent, of the slave's.
#include "store/lookups.h"

#include <set>
#include <string>
#include <vector>

#include "store_fixture.h"

namespace qortest {
namespace {

using qor::ClustRecord;

const Row kMaster = {"mhost", "127.0.0.1", "master", 100, 8, "0.50"};
const Row kSlave = {"shost", "127.0.0.2", "slave", 100, 4, "0.50"};
const Row kMasterInactive = {"mhost", "127.0.0.1", "master", 200, 8, "0.50"};
const Row kSecondMaster = {"m2host", "127.0.0.3", "master", 100, 8, "0.50"};
const Row kMember = {"node-a", "10.0.0.5", "member", 100, 2, "0.50"};

using StoreLookups = StoreTest;

TEST_F(StoreLookups, CheckClusterTellsWhichOfMasterAndSlaveIsActive) {
  const std::set<std::string> none, m = {kMasterAddr}, s = {kSlaveAddr},
                                    both = {kMasterAddr, kSlaveAddr};
  struct Case {
    const char* name;
    std::vector<Row> masterRows, slaveRows;
    std::set<std::string> downAtStart;  // no pool for these
    std::set<std::string> silent;       // not answering when CheckCluster pings
    int cluster, rc, masterAlive, slaveAlive;
    int pings;  // of the master's address
  } cases[] = {
      {"both active", {kMaster, kSlave, kMember}, {}, none, none, 1, 0, 1, 1, 1},
      {"master only", {kMaster, kMember}, {}, none, none, 1, 0, 1, 0, 1},
      {"slave only", {kMasterInactive, kSlave}, {}, none, none, 1, 0, 0, 1, 1},
      {"two masters", {kMaster, kSlave, kSecondMaster}, {}, none, none, 1, 1, 0, 0, 1},
      {"members only", {kMember}, {}, none, none, 1, 1, 0, 0, 1},
      {"cluster off", {kMaster, kSlave}, {}, none, none, 0, 1, 0, 0, 0},
      // A silent master sends the question to the slave's database, pool or no pool.
      {"master silent", {kMaster, kSlave}, {kSlave}, none, m, 1, 0, 0, 1, 3},
      {"master silent, no slave pool", {kMaster, kSlave}, {kSlave}, s, m, 1, 1, 0, 0, 3},
      {"no pools", {kMaster, kSlave}, {}, both, none, 1, 1, 0, 0, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fill(c.masterRows, c.slaveRows, c.downAtStart);
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
