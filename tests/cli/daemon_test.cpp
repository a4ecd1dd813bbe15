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

TEST_F(CliDaemon, RunsAtBootIsRefusedTwiceListedAndStopped) {
  RunResult start = host.Run({"-start_boot"});
  ASSERT_EQ(start.status, 0) << start.out << start.err;
  EXPECT_EQ(start.out, "");
  ASSERT_TRUE(WaitFor(20, [] { return MasterRowAge("master") >= 0 && MasterRowAge("slave") >= 0; }))
      << "the master's row did not reach both databases";
  // Fresh in both databases for 10 seconds: the daemon writes every cycle.
  for (int i = 0; i < 5; ++i) {
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_LE(MasterRowAge("master"), 4);
    EXPECT_LE(MasterRowAge("slave"), 4);
  }
  EXPECT_EQ(Sql("master", "select hostname, role_id from clusters where role='master';"),
            "qormaster\t100\n");

  RunResult again = host.Run({"-start_boot"});
  EXPECT_EQ(again.status, 1) << again.err;
  EXPECT_EQ(again.out, "qorclustd already running! (result=2)\n");

  RunResult ps = host.Run({"-ps"});
  EXPECT_EQ(ps.status, 0);
  EXPECT_NE(ps.out.find("qorclustd -start_boot"), std::string::npos) << ps.out;

  // The stop logs the length of the last listing line without its blanks, the newline counted.
  std::string listing = host.Shell("ps ax | grep 'qorclustd -start' | grep -v grep").out;
  std::string pid = std::to_string(std::atoi(listing.c_str()));
  std::string unblanked = listing;
  unblanked.erase(std::remove(unblanked.begin(), unblanked.end(), ' '), unblanked.end());
  RunResult stop = host.Run({"-stop"});
  EXPECT_EQ(stop.status, 0);
  EXPECT_EQ(stop.out, "qorclustd daemon stopping...\npid=" + pid + "\n") << listing;
  ASSERT_TRUE(WaitFor(5, [&] { return DaemonCount(host) == 0; }));
  std::vector<std::string> log = host.Syslog();
  EXPECT_NE(std::find(log.begin(), log.end(),
                      "stopped by command (" + std::to_string(unblanked.size()) + ")"),
            log.end())
      << listing;
  // Nothing left to stop: no process line, no kill, a length of 0.
  RunResult idle = host.Run({"-stop"});
  EXPECT_EQ(idle.status, 0);
  EXPECT_EQ(idle.out, "qorclustd daemon stopping...\n");
  EXPECT_EQ(host.Syslog().back(), "stopped by command (0)");
  int age = MasterRowAge("master");
  std::this_thread::sleep_for(std::chrono::seconds(4));
  EXPECT_GE(MasterRowAge("master"), age + 3) << "the row must stop moving once the daemon is gone";

  bool started = false, notice = false;
  for (const std::string& line : host.Syslog()) {
    started |= line == "qorclustd daemon starting with -start_boot...\n";
    notice |= line.rfind("started with actinterval=300 clustrole=100 cnf.clustcontrol=0", 0) == 0;
  }
  EXPECT_TRUE(started);
  EXPECT_TRUE(notice);
}

// In debug mode the daemon traces every cycle to its standard output, which it has closed: the
// trace must land nowhere, not in whatever the daemon opened next (its syslog or database
// connections), and the heartbeat must go on undisturbed.
TEST_F(CliDaemon, ADebugDaemonTracesIntoNothing) {
  RunResult start = host.Run({"-start_bootx"});
  ASSERT_EQ(start.status, 0) << start.out << start.err;
  ASSERT_TRUE(
      WaitFor(20, [] { return MasterRowAge("master") >= 0 && MasterRowAge("slave") >= 0; }));
  RunResult fds = host.Shell(
      "for p in $(ps ax | grep 'qorclustd -start' | grep -v grep | awk '{print $1}'); do "
      "readlink /proc/$p/fd/0 /proc/$p/fd/1 /proc/$p/fd/2; done");
  EXPECT_EQ(fds.out, "/dev/null\n/dev/null\n/dev/null\n");
  // A few kilobytes of trace per cycle: well past any stdio buffer within these cycles.
  for (int i = 0; i < 8; ++i) {
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_LE(MasterRowAge("master"), 4) << "cycle " << i;
    EXPECT_LE(MasterRowAge("slave"), 4) << "cycle " << i;
  }
  for (const std::string& line : host.Syslog()) {
    EXPECT_EQ(line.find("error"), std::string::npos) << line;
    EXPECT_EQ(line.find("_x"), std::string::npos) << line;
  }
  EXPECT_EQ(host.Run({"-stop"}).status, 0);
  EXPECT_TRUE(WaitFor(5, [&] { return DaemonCount(host) == 0; }));
}

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
