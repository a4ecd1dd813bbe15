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

}  // namespace
}  // namespace qortest
