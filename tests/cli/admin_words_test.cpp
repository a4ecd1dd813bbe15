// The real binary's administrative and listing words against the two test databases: the
// confirmation prompt, the row commands and which database they change, the two-database listing,
// the target, the master check and the address and configuration answers.
//
// A server "not answering ping" is configured as 255.255.255.255: the ping program refuses the
// broadcast address without -b (or finds no route to it) before sending anything, so the ping
// fails for real and no packet leaves the host. Every address of 127/8 answers on Linux, and a
// private network namespace would cut the binary off from the test databases too.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/sandbox.h"
#include "support/store_env.h"

namespace qortest {
namespace {

constexpr const char* kSilent = "255.255.255.255";
constexpr const char* kPrompt = "Are your sure [y/N] ? ";
constexpr const char* kUsageHead = "qorclustd 4.0.16 2022/10/03\nusage: qorclustd -start";

// Two member rows whose status and template columns every row command changes.
const char* const kNodes =
    "insert into clusters (hostname, ipaddress, role, role_id, status, last_writemill, "
    "tpl_syncstate, tpl_syncmill) values ('node-a', '10.0.0.5', 'member', 102, 100, 5, 100, 7), "
    "('node-b', '10.0.0.6', 'member', 102, 100, 5, 100, 7);";

std::string Nodes(const std::string& side) {
  return Sql(side,
             "select hostname, status, last_writemill, tpl_syncstate, tpl_syncmill from clusters "
             "order by hostname;");
}

const char* const kUntouched = "node-a\t100\t5\t100\t7\nnode-b\t100\t5\t100\t7\n";

class CliAdmin : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetTables();
    UseConf("master", "lo");
  }
  void TearDown() override { ResetTables(); }
  void UseConf(const char* role, const char* netif, const char* master = kMasterAddr,
               const char* slave = kSlaveAddr, const std::string& more = "") {
    box.Write(".qorconf", TestClusterConf(role, netif, master, slave) + more);
  }
  RunResult Run(const std::vector<std::string>& args, const std::string& input = "") {
    return box.Run(args, RunOptions{input, 0, 60});
  }
  Sandbox box;
};

// While the master answers, its database is the first open one: the words that name the slave
// change the master's database too; the slave's address appears in the progress text only.
TEST_F(CliAdmin, EachRowWordDoesItsJobOnTheFirstOpenDatabase) {
  const std::string removedA = "node-b\t100\t5\t100\t7\n";
  const std::string oldA = "node-a\t300\t0\t100\t7\nnode-b\t100\t5\t100\t7\n";
  const std::string tplOldA = "node-a\t100\t5\t300\t0\nnode-b\t100\t5\t100\t7\n";
  struct Case {
    std::vector<std::string> args;
    std::string progress;
    std::string master;
  } cases[] = {
      {{"-rm_from_master", "node-a"}, "removing node-a from 127.0.0.1...", removedA},
      {{"-rm_from_slave", "node-a"}, "removing node-a from 127.0.0.2...", removedA},
      {{"-rm_all_from_master"}, "removing all from 127.0.0.1...", ""},
      {{"-rm_all_from_slave"}, "removing all from 127.0.0.2...", ""},
      {{"-set_old_on_master", "node-a"}, "set node-a old on 127.0.0.1...", oldA},
      {{"-set_old_on_slave", "node-a"}, "set node-a old on 127.0.0.2...", oldA},
      {{"-set_tplold_on_master", "node-a"}, "set node-a tpl old on 127.0.0.1...", tplOldA},
      {{"-set_tplold_on_slave", "node-a"}, "set node-a tpl old on 127.0.0.2...", tplOldA},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args[0]);
    ResetTables();
    for (const char* side : {"master", "slave"}) Sql(side, kNodes);
    RunResult r = Run(c.args, "y\n");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, kPrompt + c.progress + "OK\n");
    EXPECT_EQ(Nodes("master"), c.master);
    EXPECT_EQ(Nodes("slave"), kUntouched);
    EXPECT_TRUE(r.syslog.empty()) << r.syslog[0];
  }
}

const char* const kMasterHead = "1.-- on master db ---------------------------------\n";
const char* const kSlaveHead = "2.-- on slave db ----------------------------------\n";
const char* const kHeader =
    "[id] host ip clustid role stat lastwrt tplsyncstat tplupd tplsync loadavgpp containers "
    "updated\n";
const char* const kFullHeader =
    "[id] host ip clustid role stat lastwrt tplsyncstat tplupd tplsync loadavgpp containers "
    "updated cores cpu mem disk qorver\n";

class CliAdminListing : public CliAdmin {
 protected:
  void SetUp() override {
    CliAdmin::SetUp();
    const std::string columns =
        "insert into clusters (id, hostname, ipaddress, clusterid, role, role_id, status, "
        "last_writemill, tpl_updatemill, tpl_syncmill, tpl_syncstate, cpucores, cpuloadavgpp, "
        "containers, updated_at, cpuutil, memutil, diskutil, qorver) values ";
    Sql("master", columns +
                      "(4, 'node-a', '10.0.0.5', 'c1', 'member', 102, 200, 0, 0, 0, 0, 16, "
                      "1000.00, 0, '2023-01-02 03:04:05', 0, 0, 0, ''), "
                      "(5, 'mhost', '127.0.0.1', 'c1', 'master', 100, 100, 1700000000001, "
                      "1700000000002, 1700000000003, 100, 8, 0.75, 3, '2023-07-04 05:06:07', "
                      "0.50, 1.00, 2.75, '4.0.16');");
    Sql("slave", columns +
                     "(2, 'shost', '127.0.0.2', 'c1', 'slave', 101, 300, 0, 1700000000002, 0, 300, "
                     "4, 2.50, 1, '2023-07-04 05:06:08', 0, 0, 0, '4.0.15');");
    const std::string t1 = std::to_string(LocalStandardTime("2023-07-04 05:06:07"));
    const std::string t2 = std::to_string(LocalStandardTime("2023-01-02 03:04:05"));
    const std::string t3 = std::to_string(LocalStandardTime("2023-07-04 05:06:08"));
    mhost_ =
        "[5] mhost 127.0.0.1 c1 master 100 1700000000001 100 1700000000002 1700000000003 "
        "0.00 3 " +
        t1;
    nodeA_ = "[4] node-a 10.0.0.5 c1 member 200 0 0 0 0 1000.00 0 " + t2;
    shost_ = "[2] shost 127.0.0.2 c1 slave 300 0 300 1700000000002 0 2.00 1 " + t3;
  }
  std::string mhost_, nodeA_, shost_;
};

TEST_F(CliAdminListing, ListsBothDatabasesInBothForms) {
  RunResult l = Run({"-l"});
  EXPECT_EQ(l.status, 0) << l.err;
  EXPECT_EQ(l.out, kMasterHead + std::string(kHeader) + mhost_ + "\n" + nodeA_ + "\n" + kSlaveHead +
                       kHeader + shost_ + "\n");
  EXPECT_TRUE(l.syslog.empty()) << l.syslog[0];

  RunResult lf = Run({"-lf"});
  EXPECT_EQ(lf.status, 0) << lf.err;
  EXPECT_EQ(lf.out, kMasterHead + std::string(kFullHeader) + mhost_ + " 8 0.00 1.00 2.00 4.0.16\n" +
                        nodeA_ + " 16 0.00 0.00 0.00 \n" + kSlaveHead + kFullHeader + shost_ +
                        " 4 0.00 0.00 0.00 4.0.15\n");
}

TEST_F(CliAdmin, TargetByRole) {
  Sql("master",
      "insert into clusters (hostname, ipaddress, status, cpuloadavgpp) values "
      "('busy', '10.0.0.1', 100, 0.75), ('best', '10.0.0.2', 100, 0.50), "
      "('idle', '10.0.0.3', 200, 0.10), ('full', '10.0.0.4', 100, 1000);");
  Sql("slave",
      "insert into clusters (hostname, ipaddress, status, cpuloadavgpp) values "
      "('sbest', '10.0.1.3', 100, 0.10);");
  struct Case {
    const char* role;
    const char* netif;
    const char* master;
    const char* slave;
    const char* out;
  } cases[] = {
      {"master", "lo", kMasterAddr, kSlaveAddr, "Master: Cluster Target -> 10.0.0.2\n"},
      // A slave on 127.0.0.1 whose master is the server on 127.0.0.2: the target comes from the
      // configured master's database.
      {"slave", "lo", kSlaveAddr, kMasterAddr, "Slave: Cluster Target -> 10.0.1.3\n"},
      {"member", "0", kMasterAddr, kSlaveAddr, "Can not get cluster target on member servers!\n"},
      {"master", "lo", kMasterAddr, kSilent, "Master: Cluster Target -> 10.0.0.2\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.role) + " " + c.slave);
    UseConf(c.role, c.netif, c.master, c.slave);
    RunResult r = Run({"-target"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, c.out);
  }
  Sql("master", "update clusters set status = 200;");
  UseConf("master", "lo");
  RunResult none = Run({"-target"});
  EXPECT_EQ(none.status, 0) << none.err;
  EXPECT_EQ(none.out, "Master: Cluster Target -> \n");
}

TEST_F(CliAdmin, ClearIsRefusedOnAClusterServer) {
  Sql("master", kNodes);
  RunResult r = Run({"-clear"}, "y\n");
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(r.out, "_not standalone. cluster!\n");
  EXPECT_EQ(Nodes("master"), kUntouched);
}

}  // namespace
}  // namespace qortest
