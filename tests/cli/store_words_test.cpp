// The real binary's words that reach the network and the databases: -ping, -count, -update and
// -monitor.
#include <gtest/gtest.h>

#include <string>

#include "support/sandbox.h"
#include "support/store_env.h"

namespace qortest {
namespace {

class CliStoreWords : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetTables();
    box.Write(".qorconf", TestClusterConf("master", "lo"));
  }
  void TearDown() override { ResetTables(); }
  Sandbox box;
};

TEST_F(CliStoreWords, PingAnswersWithItsTriesAndRefusals) {
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string out;
    size_t syslog;
  } cases[] = {
      {{"-ping", "127.0.0.1"}, 0, "ping OK! (127.0.0.1)\n", 0},
      {{"-ping", "127.0.0.1", "2"}, 0, "ping OK! (127.0.0.1)\n", 0},
      {{"-ping", "127.0.0.1", "0"}, 1, "ping NG! (127.0.0.1)\n", 0},
      {{"-ping", "127.0.0.1", "1", "extra"}, 1, "ping NG! (127.0.0.1)\n", 0},
      {{"-ping", "127.0.0.1;touch /tmp/qorping"},
       1,
       "ping NG! (127.0.0.1;touch /tmp/qorping)\n",
       1},
  };
  for (const Case& c : cases) {
    RunResult r = box.Run(c.args);
    std::string what = c.args.size() > 1 ? c.args[1] : "";
    EXPECT_EQ(r.status, c.status) << what << r.err;
    EXPECT_EQ(r.out, c.out) << what;
    EXPECT_EQ(r.syslog.size(), c.syslog) << what;
  }
  EXPECT_NE(access("/tmp/qorping", F_OK), 0) << "a refused address must never reach the shell";
}

TEST_F(CliStoreWords, PingWithoutHostGivesUsageAndRunsNothing) {
  RunResult r = box.Run({"-ping"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("qorclustd 4.0.16 2022/10/03\nusage: qorclustd -start", 0), 0u) << r.out;
  EXPECT_TRUE(r.syslog.empty());
}

TEST_F(CliStoreWords, CountReadsTheTableOfTheRightDatabase) {
  Sql("master", "insert into clusters (hostname) values ('a'),('b'),('c');");
  Sql("slave", "insert into clusters (hostname) values ('a');");
  RunResult master = box.Run({"-count"});
  EXPECT_EQ(master.status, 0) << master.err;
  EXPECT_EQ(master.out, "3\n");
  EXPECT_TRUE(master.syslog.empty()) << master.syslog[0];

  RunResult tracing = box.Run({"-countx"});
  EXPECT_NE(tracing.out.find("_xgetclustcountsql(1): count=3\n3\n"), std::string::npos)
      << tracing.out;
}

TEST_F(CliStoreWords, UpdateWritesOneHeartbeatThenListsBothDatabases) {
  RunResult r = box.Run({"-update"});
  EXPECT_EQ(r.status, 0) << r.err;
  // An empty master's database gets the master's row; the slave's database is not touched yet.
  std::string row = Sql("master", "select role, role_id, status, ipaddress from clusters;");
  EXPECT_EQ(row, "master\t100\t100\t127.0.0.1\n");
  EXPECT_EQ(Sql("slave", "select count(*) from clusters;"), "0\n");
  const std::string head =
      "[id] host ip clustid role stat lastwrt tplsyncstat tplupd tplsync loadavgpp containers "
      "updated\n";
  size_t m = r.out.find("1.-- on master db ---------------------------------\n" + head + "[1] ");
  size_t s = r.out.find("2.-- on slave db ----------------------------------\n" + head);
  EXPECT_NE(m, std::string::npos) << r.out;
  EXPECT_NE(s, std::string::npos) << r.out;
  EXPECT_LT(m, s);
  EXPECT_EQ(r.out.substr(s).find("[1] "), std::string::npos) << "the slave's table is empty";
}

TEST_F(CliStoreWords, MonitorMarksASilentMemberThenListsBothDatabases) {
  Sql("master",
      "insert into clusters (hostname, ipaddress, role, role_id, status, updated_at) values "
      "('m1', '10.0.0.9', 'member', 102, 100, now() - interval 30 second);");
  RunResult r = box.Run({"-monitor"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Sql("master", "select status from clusters;"), "200\n");
  EXPECT_NE(r.out.find("1.-- on master db"), std::string::npos) << r.out;
  ASSERT_FALSE(r.syslog.empty());
  EXPECT_EQ(r.syslog[0].rfind("Detected_1 that m1(10.0.0.9)<", 0), 0u) << r.syslog[0];
}

}  // namespace
}  // namespace qortest
