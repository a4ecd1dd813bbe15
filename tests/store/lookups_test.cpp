// The read-only lookups against the two real databases: which of master and slave is active,
// whether a row is the master's, the cluster target and what it does to this node's record, and
// the table listing as text.
#include "store/lookups.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "base/paths.h"
#include "config/qorconf.h"
#include "store/cluster_query.h"
#include "store/pools.h"
#include "store_fixture.h"
#include "support/temp_dir.h"

namespace qortest {
namespace {

using qor::ClustRecord;

const Row kMaster = {"mhost", "127.0.0.1", "master", 100, 100, 8, "0.50"};
const Row kSlave = {"shost", "127.0.0.2", "slave", 101, 100, 4, "0.50"};
const Row kMasterInactive = {"mhost", "127.0.0.1", "master", 100, 200, 8, "0.50"};
const Row kSecondMaster = {"m2host", "127.0.0.3", "master", 100, 100, 8, "0.50"};
const Row kMember = {"node-a", "10.0.0.5", "member", 102, 100, 2, "0.50"};

// GetClust re-reads the configuration file: the tests give it one of their own (none unless a
// test writes it), so that nothing on the host can change the test cluster's settings.
class StoreLookupsTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    qor::Cnffile = (dir_.path() + "/.qorconf").c_str();
    qor::ClustsOnMaster[0]->ipaddress = "";
  }
  void TearDown() override {
    qor::Cnffile = qor::kConfFile;
    StoreTest::TearDown();
  }
  TempDir dir_;
};

struct CheckCase {
  const char* name;
  std::vector<Row> masterRows, slaveRows;
  std::set<std::string> downAtStart;  // no pool for these
  std::set<std::string> silent;       // not answering when CheckCluster pings
  int cluster;
  int rc, masterAlive, slaveAlive;
  int pings;  // of the master's address
};

void PrintTo(const CheckCase& c, std::ostream* os) {
  *os << c.name;
}

class StoreLookupsCheckCluster : public StoreLookupsTest,
                                 public ::testing::WithParamInterface<CheckCase> {};

TEST_P(StoreLookupsCheckCluster, TellsWhichOfMasterAndSlaveIsActive) {
  const CheckCase& c = GetParam();
  if (!c.masterRows.empty()) Sql("master", InsertRows(c.masterRows));
  if (!c.slaveRows.empty()) Sql("slave", InsertRows(c.slaveRows));
  Connect(c.downAtStart);
  seam.blocked = c.silent;
  int masterAlive = 7, slaveAlive = 7;
  EXPECT_EQ(qor::CheckCluster(&masterAlive, &slaveAlive, c.cluster, kMasterAddr, kSlaveAddr,
                              "qordirect", QOR_TESTDB_PASSWORD, qor::ClustsTemp),
            c.rc);
  EXPECT_EQ(masterAlive, c.masterAlive);
  EXPECT_EQ(slaveAlive, c.slaveAlive);
  EXPECT_EQ(Pinged(seam.commands), std::vector<std::string>(c.pings, kMasterAddr));
}

INSTANTIATE_TEST_SUITE_P(
    Store, StoreLookupsCheckCluster,
    ::testing::Values(
        CheckCase{"both active", {kMaster, kSlave, kMember}, {}, {}, {}, 1, 0, 1, 1, 1},
        CheckCase{"master only", {kMaster, kMember}, {}, {}, {}, 1, 0, 1, 0, 1},
        CheckCase{"slave only", {kMasterInactive, kSlave}, {}, {}, {}, 1, 0, 0, 1, 1},
        CheckCase{"two masters", {kMaster, kSlave, kSecondMaster}, {}, {}, {}, 1, 1, 0, 0, 1},
        CheckCase{"members only", {kMember}, {}, {}, {}, 1, 1, 0, 0, 1},
        CheckCase{"cluster off", {kMaster, kSlave}, {}, {}, {}, 0, 1, 0, 0, 0},
        // A silent master sends the question to the slave's database, pool or no pool.
        CheckCase{"master silent", {kMaster, kSlave}, {kSlave}, {}, {kMasterAddr}, 1, 0, 0, 1, 3},
        CheckCase{"master silent, no slave pool",
                  {kMaster, kSlave},
                  {kSlave},
                  {kSlaveAddr},
                  {kMasterAddr},
                  1,
                  1,
                  0,
                  0,
                  3},
        CheckCase{
            "no pools", {kMaster, kSlave}, {}, {kMasterAddr, kSlaveAddr}, {}, 1, 1, 0, 0, 1}));

TEST_F(StoreLookupsTest, IsClustMasterOnlyForOneMasterRow) {
  struct Case {
    std::vector<Row> masterRows, slaveRows;
    std::set<std::string> down;
    const char* selector;
    int rc;
  } cases[] = {
      {{kMaster, kSlave}, {}, {}, "mhost", 0},
      {{kMaster, kSlave}, {}, {}, "-master", 0},
      {{kMaster, kSlave}, {}, {}, "shost", 1},
      {{kMaster, kSlave}, {}, {}, "-slave", 1},
      {{kMaster, kSlave}, {}, {}, "nohost", 1},
      {{kMaster, kMaster}, {}, {}, "mhost", 1},
      {{{"mhost", "127.0.0.1", "Master", 100, 100, 8, "0.50"}}, {}, {}, "mhost", 1},
      {{kMember}, {kMaster}, {kMasterAddr}, "mhost", 0},
      {{kMaster}, {kMaster}, {kMasterAddr, kSlaveAddr}, "mhost", 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.selector) + " down " + std::to_string(c.down.size()));
    ResetTables();
    if (!c.masterRows.empty()) Sql("master", InsertRows(c.masterRows));
    if (!c.slaveRows.empty()) Sql("slave", InsertRows(c.slaveRows));
    qor::CloseConnectionPool();
    Connect(c.down);
    EXPECT_EQ(qor::IsClustMaster(kMasterAddr, c.selector, qor::ClustsTemp), c.rc);
  }
}

// Every field of a record, for comparing whole records.
std::string Describe(const ClustRecord& r) {
  char text[2048];
  std::snprintf(text, sizeof text,
                "id=%d host=%s ip=%s cid=%s role=%s role_id=%d status=%d dbw=%.0f lw=%lld "
                "tplupd=%lld tplsync=%lld tplstate=%d cpuinfo=%s cpus=%d phy=%d cores=%d procs=%d "
                "load=%g loadpp=%g containers=%d cpu=%g mem=%g disk=%g ver=%s updated=%lld "
                "qortime=%lld",
                r.id, r.hostname.c_str(), r.ipaddress.c_str(), r.clusterid.c_str(), r.role.c_str(),
                r.role_id, r.status, r.dbwrite_count, static_cast<long long>(r.last_writemill),
                static_cast<long long>(r.tpl_updatemill), static_cast<long long>(r.tpl_syncmill),
                r.tpl_syncstate, r.cpuinfo.c_str(), r.cpus, r.cpuphycores, r.cpucores, r.cpuprocs,
                r.cpuloadavg, r.cpuloadavgpp, r.containers, r.cpuutil, r.memutil, r.diskutil,
                r.qorver.c_str(), static_cast<long long>(r.updated_at),
                static_cast<long long>(r.qortimemill));
  return text;
}

// This node's record as a heartbeat leaves it: every field set.
ClustRecord OwnRecord() {
  ClustRecord r;
  r.id = 99;
  r.hostname = "own";
  r.ipaddress = "10.9.0.1";
  r.clusterid = "own-c";
  r.role = "member";
  r.role_id = 102;
  r.status = 200;
  r.dbwrite_count = 3;
  r.last_writemill = 11;
  r.tpl_updatemill = 12;
  r.tpl_syncmill = 13;
  r.tpl_syncstate = 100;
  r.cpuinfo = "own cpu";
  r.cpus = 1;
  r.cpuphycores = 2;
  r.cpucores = 3;
  r.cpuprocs = 4;
  r.cpuloadavg = 5;
  r.cpuloadavgpp = 6;
  r.containers = 7;
  r.cpuutil = 0.11;
  r.memutil = 0.22;
  r.diskutil = 0.33;
  r.qorver = "own-ver";
  r.updated_at = 44;
  r.qortimemill = 555;
  return r;
}

// Candidates for the target; "best" has the lowest load per processor among the eligible.
const char* const kTargetRows =
    "insert into clusters (hostname, ipaddress, clusterid, role, role_id, status, "
    "dbwrite_count, last_writemill, tpl_updatemill, tpl_syncmill, tpl_syncstate, cpuinfo, cpus, "
    "cpuphycores, cpucores, cpuprocs, cpuloadavg, cpuloadavgpp, containers, updated_at, "
    "qortimemill, cpuutil, memutil, diskutil, qorver) values "
    "('busy', '10.0.0.1', 'c1', 'member', 102, 100, 0, 0, 0, 0, 0, '', 1, 1, 1, 1, 0, 0.75, 0, "
    "'2023-01-01 00:00:00', 0, 0, 0, 0, ''), "
    "('best', '10.0.0.2', 'c1', 'member', 102, 100, 8, 1700000000001, 1700000000002, "
    "1700000000003, 300, 'Model B', 2, 8, 16, 32, 7.25, 0.50, 12, '2023-03-04 05:06:07', "
    "1690000000000, 0.5, 0.5, 0.5, '4.0.16'), "
    "('idle', '10.0.0.3', 'c1', 'member', 102, 200, 0, 0, 0, 0, 0, '', 1, 1, 1, 1, 0, 0.10, 0, "
    "'2023-01-01 00:00:00', 0, 0, 0, 0, ''), "
    "('full', '10.0.0.4', 'c1', 'member', 102, 100, 0, 0, 0, 0, 0, '', 1, 1, 1, 1, 0, 1000, 0, "
    "'2023-01-01 00:00:00', 0, 0, 0, 0, '');";

TEST_F(StoreLookupsTest, GetTargetTakesTheBestRowIntoClustKeepingItsOwnFigures) {
  Sql("master", kTargetRows);
  const int id = std::stoi(Sql("master", "select id from clusters where hostname = 'best';"));
  Connect();
  qor::Clust = OwnRecord();

  EXPECT_EQ(qor::GetTarget(kMasterAddr, qor::ClustsOnMaster), 0);
  EXPECT_STREQ(qor::Clusttarget.c_str(), "10.0.0.2");
  // The row as the query read it, but for the figures Clust keeps of its own.
  ClustRecord expected = *qor::ClustsOnMaster[0];
  ASSERT_STREQ(expected.hostname.c_str(), "best");
  ASSERT_EQ(expected.id, id);
  ASSERT_EQ(expected.last_writemill, 1700000000001);
  expected.cpuutil = 0.11;
  expected.memutil = 0.22;
  expected.diskutil = 0.33;
  expected.qorver = "own-ver";
  expected.qortimemill = 555;
  EXPECT_EQ(Describe(qor::Clust), Describe(expected));
}

TEST_F(StoreLookupsTest, GetTargetWithoutACandidateLeavesClustAlone) {
  struct Case {
    const char* rows;
    std::set<std::string> down;
  } cases[] = {
      {"insert into clusters (hostname, ipaddress, status, cpuloadavgpp) values "
       "('full', '10.0.0.4', 100, 1000), ('over', '10.0.0.5', 100, 1500.25), "
       "('idle', '10.0.0.3', 200, 0.10);",
       {}},
      {kTargetRows, {kMasterAddr, kSlaveAddr}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.down.size());
    ResetTables();
    Sql("master", c.rows);
    qor::CloseConnectionPool();
    Connect(c.down);
    qor::Clust = OwnRecord();
    qor::ClustsOnMaster[0]->ipaddress = "10.9.9.9";
    EXPECT_EQ(qor::GetTarget(kMasterAddr, qor::ClustsOnMaster), 1);
    EXPECT_EQ(Describe(qor::Clust), Describe(OwnRecord()));
    EXPECT_STREQ(qor::Clusttarget.c_str(), "10.9.9.9") << "the first record's previous address";
  }
}

TEST_F(StoreLookupsTest, GetClustReReadsTheConfigurationOnlyWhenThereIsARow) {
  dir_.Write(".qorconf", TestClusterConf("master", "lo") + "qor_clustsweep=45\n");
  qor::cnf.clustsweep = 30;
  qor::Clust = OwnRecord();
  EXPECT_EQ(qor::GetClust(0, qor::ClustsTemp, 0), 1);
  EXPECT_EQ(qor::cnf.clustsweep, 30);
  EXPECT_EQ(Describe(qor::Clust), Describe(OwnRecord()));

  ClustRecord row;
  row.hostname = "from-row";
  *qor::ClustsTemp[1] = row;
  EXPECT_EQ(qor::GetClust(2, qor::ClustsTemp, 1), 0);
  EXPECT_EQ(qor::cnf.clustsweep, 45);
  EXPECT_STREQ(qor::Clust.hostname.c_str(), "from-row");
}

const char* const kHeader =
    "[id] host ip clustid role stat lastwrt tplsyncstat tplupd tplsync loadavgpp containers "
    "updated\n";
const char* const kFullHeader =
    "[id] host ip clustid role stat lastwrt tplsyncstat tplupd tplsync loadavgpp containers "
    "updated cores cpu mem disk qorver\n";

std::string Listing(const char* server, int full) {
  ::testing::internal::CaptureStdout();
  qor::ShowClusterList(server, full);
  return ::testing::internal::GetCapturedStdout();
}

TEST_F(StoreLookupsTest, ShowClusterListPrintsEveryRowInBothForms) {
  Sql("master",
      "insert into clusters (id, hostname, ipaddress, clusterid, role, role_id, status, "
      "last_writemill, tpl_updatemill, tpl_syncmill, tpl_syncstate, cpucores, cpuloadavgpp, "
      "containers, updated_at, cpuutil, memutil, diskutil, qorver) values "
      "(7, 'node-a', '10.0.0.5', 'c1', 'member', 102, 200, 0, 0, 0, 0, 16, 1000.00, 0, "
      "'2023-01-02 03:04:05', 0, 0, 0, ''), "
      "(9, 'mhost', '127.0.0.1', 'c1', 'master', 100, 100, 1700000000001, 1700000000002, "
      "1700000000003, 100, 8, 0.75, 3, '2023-07-04 05:06:07', 0.50, 1.00, 2.75, '4.0.16');");
  Connect();
  const std::string t1 = std::to_string(LocalStandardTime("2023-07-04 05:06:07"));
  const std::string t2 = std::to_string(LocalStandardTime("2023-01-02 03:04:05"));
  const std::string master =
      "[9] mhost 127.0.0.1 c1 master 100 1700000000001 100 1700000000002 1700000000003 0.00 3 " +
      t1;
  const std::string member = "[7] node-a 10.0.0.5 c1 member 200 0 0 0 0 1000.00 0 " + t2;
  EXPECT_EQ(Listing(kMasterAddr, 0), kHeader + master + "\n" + member + "\n");
  EXPECT_EQ(Listing(kMasterAddr, 1),
            kFullHeader + master + " 8 0.00 1.00 2.00 4.0.16\n" + member + " 16 0.00 0.00 0.00 \n");
  EXPECT_TRUE(Logs().empty());
}

TEST_F(StoreLookupsTest, ShowClusterListReadsTheDatabaseOfTheServerItNames) {
  Sql("master", InsertRows({kMaster}));
  Sql("slave", InsertRows({kSlave}));
  const std::string fromMaster =
      std::string(kHeader) + "[1] mhost 127.0.0.1  master 100 0 0 0 0 0.00 0 ";
  const std::string fromSlave =
      std::string(kHeader) + "[1] shost 127.0.0.2  slave 100 0 0 0 0 0.00 0 ";
  struct Case {
    const char* server;
    std::set<std::string> down;
    std::string listed;  // up to the updated_at value
  } cases[] = {
      {kMasterAddr, {}, fromMaster},
      {kSlaveAddr, {}, fromSlave},
      {"10.0.0.1", {}, fromMaster},
      {kSlaveAddr, {kSlaveAddr}, fromMaster},
      {kMasterAddr, {kMasterAddr}, fromSlave},
      {kMasterAddr, {kMasterAddr, kSlaveAddr}, kHeader},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.server) + " down " + std::to_string(c.down.size()));
    qor::CloseConnectionPool();
    Connect(c.down);
    std::string out = Listing(c.server, 0);
    EXPECT_EQ(out.substr(0, c.listed.size()), c.listed);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), c.listed == kHeader ? 1 : 2) << out;
  }
  // The slave's rows are read into the same array as the master's.
  Connect();
  Listing(kMasterAddr, 0);
  Listing(kSlaveAddr, 0);
  EXPECT_STREQ(qor::ClustsOnMaster[0]->hostname.c_str(), "shost");
}

TEST_F(StoreLookupsTest, ShowClusterListOutsideAClusterSaysSo) {
  Sql("master", InsertRows({kMaster}));
  Connect();
  qor::Cluster = 0;
  EXPECT_EQ(Listing(kMasterAddr, 1), "_Cluster disabled -> 0\n");
}

}  // namespace
}  // namespace qortest
