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

TEST_F(CliStartup, QorVersionRefusalsAndBounds) {
  RunResult missing = box.Run({"-qorver"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "");

  box.Write(".env", "QOR_VERSIONX\nOTHER=1\n");
  RunResult keyless = box.Run({"-qorver"});
  EXPECT_EQ(keyless.status, 0) << "a line beginning with the key counts, even without a value";
  EXPECT_EQ(keyless.out, "\n");

  box.Write(".env", "OTHER=1\n");
  RunResult nokey = box.Run({"-qorver"});
  EXPECT_EQ(nokey.status, 1);
  EXPECT_EQ(nokey.out, "");

  std::string longValue(300, '7');
  box.Write(".env", "QOR_VERSION=" + longValue + "\n");
  RunResult cut = box.Run({"-qorver"});
  EXPECT_EQ(cut.status, 0);
  EXPECT_EQ(cut.out, std::string(127, '7') + "\n");

  RunResult user = box.Run({"-qorver"}, RunOptions{"", 65534, 30});
  EXPECT_EQ(user.status, 1);
  EXPECT_EQ(user.out, "Please sudo this!\n");
}

TEST_F(CliStartup, MissingConfigurationPrintsReadError) {
  for (const char* word : {"-timesec", "-nosuchword", "-timemillx"}) {
    RunResult r = box.Run({word});
    EXPECT_EQ(r.status, 0) << word;
    EXPECT_NE(r.out.find("STAT:ENVQOR_READ_ERROR\n"), std::string::npos) << word;
    EXPECT_TRUE(r.syslog.empty()) << word;
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

TEST_F(CliStartup, TimeWordsPrintTheStartUpClock) {
  box.Write(".qorconf", kMasterConf);
  int64_t before = static_cast<int64_t>(time(nullptr));
  RunResult sec = box.Run({"-timesec"});
  RunResult mill = box.Run({"-timemill"});
  int64_t after = static_cast<int64_t>(time(nullptr));
  ASSERT_EQ(sec.status, 0) << sec.out << sec.err;
  ASSERT_EQ(mill.status, 0) << mill.out << mill.err;
  int64_t s = std::strtoll(sec.out.c_str(), nullptr, 10);
  int64_t ms = std::strtoll(mill.out.c_str(), nullptr, 10);
  EXPECT_EQ(sec.out, std::to_string(s) + "\n");
  EXPECT_EQ(mill.out, std::to_string(ms) + "\n");
  EXPECT_GE(s, before);
  EXPECT_LE(s, after);
  EXPECT_GE(ms / 1000, s);
  EXPECT_LE(ms / 1000, after);
  EXPECT_TRUE(sec.syslog.empty());
}

TEST_F(CliStartup, UnknownWordOnAValidClusterGivesUsage) {
  box.Write(".qorconf", kMasterConf);
  for (const char* word : {"-nosuchword", "timesec", "-start_nocheckz"}) {
    RunResult r = box.Run({word});
    EXPECT_EQ(r.status, 0) << word;
    EXPECT_EQ(r.out, Golden("usage.golden")) << word;
  }
  std::string usage = Golden("usage.golden");
  // "-x" is "-" in debug mode: the trace of the start-up, then the usage text. A word too long
  // for the option buffer is in debug mode by its own last character, not the one where it is cut.
  const std::string cutAtX = "-" + std::string(125, 'a') + "x" + std::string(20, 'a');
  struct Case {
    std::string word;
    bool traced;
  } cases[] = {{"-x", true}, {cutAtX + "x", true}, {cutAtX, false}};
  for (const Case& c : cases) {
    RunResult r = box.Run({c.word});
    EXPECT_EQ(r.status, 0) << c.word;
    EXPECT_EQ(r.out.rfind("_xgetcpuinfo(1): ", 0) == 0, c.traced) << c.word << "\n" << r.out;
    ASSERT_GE(r.out.size(), usage.size()) << c.word;
    EXPECT_EQ(r.out.substr(r.out.size() - usage.size()), usage) << c.word;
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

TEST_F(CliStartup, DebugModeTracesTheStartUp) {
  box.Write(".qorconf", kMasterConf);
  RunResult r = box.Run({"-timesecx"});
  EXPECT_EQ(r.status, 0);
  for (const char* line : {"_xgetcpuinfo(1): model=", "_xgetqorconf(1): [start] cpus=",
                           "_xgetqorconf(1): 7 parameters are read\n",
                           "_xcheckcluster(1): cluster=1 clustid=c1 role=master master=127.0.0.1 "
                           "slave=127.0.0.2\n"}) {
    EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n---\n" << r.out;
  }
  EXPECT_EQ(r.out.back(), '\n');
}

}  // namespace
}  // namespace qortest
