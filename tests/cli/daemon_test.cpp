// The real daemon on a test host of its own (private mount and pid namespaces): started at boot,
// writing the master's row into both databases, refused a second time, listed, stopped, and
// stopping itself when its configuration no longer enables the cluster.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "lab/ns_host.h"
#include "support/store_env.h"

namespace qortest {
namespace {

// Seconds since the master's row was last written in the database of side, -1 without a row.
int MasterRowAge(const std::string& side) {
  std::string out = Sql(side,
                        "select timestampdiff(second, updated_at, now()) from clusters where "
                        "role='master' and status='100';");
  return out.empty() ? -1 : std::atoi(out.c_str());
}

// Waits (bounded) until pred holds; false when it never did.
template <class Pred>
bool WaitFor(int seconds, Pred pred) {
  for (int i = 0; i < seconds * 4; ++i) {
    if (pred()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
  return pred();
}

int DaemonCount(NsHost& host) {
  RunResult r = host.Shell("ps aux | grep 'qorclustd -start' | grep -v grep | wc -l");
  return std::atoi(r.out.c_str());
}

class CliDaemon : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetTables();
    // A master that finds no slave row in its own database writes only there.
    Sql("master",
        "insert into clusters (hostname,ipaddress,clusterid,role,role_id,status) values "
        "('slavehost','127.0.0.2','c1','slave','101','100');");
    host.Write(".qorconf", TestClusterConf("master", "lo"));
    host.Write(".env", "QOR_VERSION=4.2.0\n");
    ASSERT_TRUE(host.ok());
  }
  void TearDown() override { ResetTables(); }
  NsHost host{[] {
    HostOptions o;
    o.hostname = "qormaster";
    return o;
  }()};
};

TEST_F(CliDaemon, StopsAtTheNextRecheckWhenTheClusterIsDisabled) {
  ASSERT_EQ(host.Run({"-start_boot"}).status, 0);
  ASSERT_TRUE(WaitFor(20, [] { return MasterRowAge("master") >= 0; }));
  host.Write(".qorconf", TestClusterConf("master", "lo") + "qor_cluster=0\n");
  // The re-check comes every 60 nominal seconds (30 cycles of work and sleep).
  ASSERT_TRUE(WaitFor(90, [&] { return DaemonCount(host) == 0; })) << "the daemon did not stop";
  bool stopped = false;
  for (size_t i = 0; i < host.SyslogRaw().size(); ++i) {
    const std::string& raw = host.SyslogRaw()[i];
    // Facility daemon, error level: <27>.
    if (raw.rfind("<27>", 0) == 0 &&
        raw.find("stopped because cluster not enabled or invalid config!") != std::string::npos) {
      stopped = raw.find("qorclustd[") != std::string::npos;
    }
  }
  EXPECT_TRUE(stopped);
}

}  // namespace
}  // namespace qortest
