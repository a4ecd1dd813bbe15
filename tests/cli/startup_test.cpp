// The real binary's start-up: usage text, version answers, the configuration gate and the time
// words, with the platform directory and /dev/log of a private mount namespace.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>

#include "support/sandbox.h"
#include "support/store_env.h"

namespace qortest {
namespace {

std::string Golden(const std::string& name) {
  std::ifstream in(std::string(QOR_TEST_DATA) + "/" + name);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

const char* const kNotice = "stopped because cluster not enabled or invalid config!";

// A master on the loopback interface: valid wherever the tests run.
const std::string kMasterConf = TestClusterConf("master", "lo");

class CliStartup : public ::testing::Test {
 protected:
  Sandbox box;
};

TEST_F(CliStartup, UsageVersionAndQorVersionNeedNoConfiguration) {
  std::string usage = Golden("usage.golden");
  box.Write(".env", "A=1\nQOR_VERSION = '4.2.7'\nQOR_VERSION=second\n");
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string out;
  } cases[] = {
      {{}, 0, usage},
      {{"-v"}, 0, "4.0.16\n"},
      {{"-vx"}, 0, "4.0.16\n"},
      {{"-qorver"}, 0, "4.2.7\n"},
      {{"-qorverx"}, 0, "4.2.7\n"},
  };
  for (const Case& c : cases) {
    RunResult r = box.Run(c.args);
    std::string what = c.args.empty() ? "(none)" : c.args[0];
    EXPECT_EQ(r.status, c.status) << what << r.err;
    EXPECT_EQ(r.out, c.out) << what;
    EXPECT_TRUE(r.syslog.empty()) << what;
  }
}

TEST_F(CliStartup, GateStopsEveryWordWithOnlyTheSyslogNotice) {
  const char* confs[] = {
      "qor_cluster=0\nqor_clustrole=master\nqor_clustmaster=127.0.0.1\nqor_netif=lo\n",
      "qor_cluster=1\r\nqor_clustrole=master\nqor_clustmaster=127.0.0.1\nqor_netif=lo\n",
      "qor_cluster=1\nqor_clustrole=master\nqor_clustmaster=127.0.0.9\nqor_netif=lo\n",
      "qor_cluster=1\nqor_clustrole=slave\nqor_clustmaster=127.0.0.1\nqor_clustslave=127.0.0.2\n"
      "qor_netif=lo\n",
      "qor_cluster=1\nqor_clustrole=boss\nqor_clustmaster=127.0.0.2\nqor_netif=lo\n",
  };
  for (const char* conf : confs) {
    box.Write(".qorconf", conf);
    for (const char* word : {"-timesec", "-nosuchword"}) {
      RunResult r = box.Run({word});
      EXPECT_EQ(r.status, 1) << conf << word;
      EXPECT_EQ(r.out, "") << conf << word;
      ASSERT_EQ(r.syslog.size(), 1u) << conf << word;
      EXPECT_EQ(r.syslog[0], kNotice);
      EXPECT_EQ(r.syslog_raw[0].rfind("<13>", 0), 0u)
          << "notice, facility user: " << r.syslog_raw[0];
    }
  }
}

TEST_F(CliStartup, DaemonWordsRefuseOtherUsers) {
  box.Write(".qorconf", kMasterConf);
  struct Case {
    const char* word;
    int status;
  } cases[] = {{"-stop", 0}, {"-start", 1}, {"-start_boot", 1}, {"-stopx", 0}};
  for (const Case& c : cases) {
    RunResult r = box.Run({c.word}, RunOptions{"", 65534, 30});
    EXPECT_EQ(r.status, c.status) << c.word << r.err;
    EXPECT_EQ(r.out.substr(r.out.size() < 18 ? 0 : r.out.size() - 18), "Please sudo this!\n")
        << c.word;
    EXPECT_EQ(r.out.find("stopping"), std::string::npos) << c.word;
  }
}

}  // namespace
}  // namespace qortest
