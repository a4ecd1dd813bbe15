// The monitors and the take-over against the two real databases: which rows of which
// database change, under which id, the lines logged, one take-over per server newly found down,
// and the browser-container move from a dead peer only.
#include "membership/monitor.h"

#include <algorithm>
#include <string>
#include <vector>

#include "base/paths.h"
#include "config/qorconf.h"
#include "membership/nodedown.h"
#include "store_fixture.h"

namespace qortest {
namespace {

using Lines = std::vector<std::string>;

class StoreMonitor : public HeartbeatTest {
 protected:
  void SetUp() override {
    HeartbeatTest::SetUp();
    // The take-over script is counted, not run: it is the platform's, not this machine's.
    auto ping = seam.real;
    seam.real = [ping](std::string& c) { return c != qor::kQordownCommand && ping(c); };
    qor::MasterLastWriteMill = qor::SlaveLastWriteMill = qor::MasterTplUpdateMill = 0;
  }
  void Containers(const std::string& side) {
    Sql(side,
        "insert into containers (containername, hostname) values ('lumobr_1', '127.0.0.1'), "
        "('lumobr_2', '127.0.0.2'), ('lumodt_1', '127.0.0.2'), ('lumobr_3', '10.0.0.9');");
  }
  std::string ContainerHosts(const std::string& side) {
    return Sql(side, "select containername, hostname from containers order by id;");
  }
  int Takeovers() {
    return static_cast<int>(
        std::count(seam.commands.begin(), seam.commands.end(), std::string(qor::kQordownCommand)));
  }
  // Log lines that begin with prefix.
  int Logged(const Lines& logs, const std::string& prefix) {
    return static_cast<int>(std::count_if(
        logs.begin(), logs.end(), [&](const std::string& l) { return l.rfind(prefix, 0) == 0; }));
  }
};

TEST_F(StoreMonitor, MasterMarksSilentRowsInBothDatabasesUnderEachDatabasesId) {
  Become("master");
  // The slave's database numbers the same hosts differently.
  Put("slave", {{"filler", "10.0.0.8", "member", 100, 0, "0", 0, 0}});
  for (const char* side : {"master", "slave"}) {
    Put(side, {{host, "127.0.0.1", "master", 100, 0, "0", 5000, 0, 0, 50}});
    Put(side, {{"shost", "127.0.0.2", "slave", 100, 0, "0", 4000, 20, 60}});
    Put(side, {{"gone", "10.0.0.9", "member", 100, 0, "0", 0, 16, 60}});
    Put(side, {{"fresh", "10.0.0.7", "member", 100, 0, "0", 0, 5, 10}});
    Put(side, {{"asleep", "10.0.0.6", "member", 200, 0, "0", 0, 99, 60}});
  }
  Containers("master");
  Connect();
  // The take-over scripts run for real and end when the test lets them.
  HeldCommand held;
  auto ping = seam.real;
  seam.real = [&held, ping](std::string& c) {
    if (c == qor::kQordownCommand) c = held.command;
    return ping(c);
  };

  EXPECT_EQ(qor::MonitorOnMaster(0), 0);
  const std::string want = Line({"shost", "300"}) + Line({"gone", "200"}) + Line({"fresh", "100"}) +
                           Line({"asleep", "200"});
  const std::string cols = "hostname,status";
  const std::string others = " from clusters where role != 'master' and hostname != 'filler'";
  EXPECT_EQ(Sql("master", "select " + cols + others + " order by id;"), want);
  EXPECT_EQ(Sql("slave", "select " + cols + others + " order by id;"), want);
  EXPECT_EQ(Sql("slave", "select status from clusters where hostname = 'filler';"), "100\n");
  // The template mark reaches the master's database (first open pool) for the one behind.
  EXPECT_EQ(Sql("master", "select tpl_syncstate from clusters where hostname = 'fresh';"), "300\n");
  EXPECT_EQ(qor::MasterLastWriteMill, 5000);
  EXPECT_EQ(qor::MasterTplUpdateMill, 50);

  Lines logs = Logs();
  EXPECT_EQ(Logged(logs, "Detected_1 that "), 3);
  // Other tools match the whole line; only the two times in it vary.
  for (const std::string& l : logs) {
    if (l.rfind("Detected_1 that gone(10.0.0.9)<", 0) != 0) continue;
    EXPECT_NE(l.find("> has not been updated for more than 15 seconds since the current time<"),
              std::string::npos)
        << l;
  }
  EXPECT_EQ(Logged(logs,
                   "DB_OLD_STAT_4: shost(127.0.0.2) is now DB_OLD_STAT(127.0.0.1:5000 > "
                   "shost:4000)"),
            1);
  EXPECT_EQ(Logged(logs, "monitoronmaster(1) lastwritemill -> 5000 4000"), 1);
  EXPECT_EQ(Logged(logs, "MASTER detected shost(127.0.0.2) down[id:"), 1);
  EXPECT_EQ(Logged(logs, "MASTER detected gone(10.0.0.9) down[id:"), 1);
  // The pass returned with the first script running and the second waiting.
  EXPECT_EQ(Takeovers(), 1);
  held.Release(0);
  held.Release(4);
  qor::WaitQordown();
  EXPECT_EQ(Takeovers(), 2);
  EXPECT_EQ(Logged(Logs(), "qordown.sh for gone(10.0.0.9) ended status=4 after "), 1);
  // A ping that hangs holds the monitor a minute at most.
  EXPECT_LE(*std::max_element(seam.bounds.begin(), seam.bounds.end()), 60);
  // Only the dead slave's browser containers come to the master.
  EXPECT_EQ(ContainerHosts("master"),
            Line({"lumobr_1", "127.0.0.1"}) + Line({"lumobr_2", "127.0.0.1"}) +
                Line({"lumodt_1", "127.0.0.2"}) + Line({"lumobr_3", "10.0.0.9"}));

  // The next pass finds the written rows fresh: no take-over again, the sleeper's line only.
  seam.commands.clear();
  EXPECT_EQ(qor::MonitorOnMaster(0), 0);
  logs = Logs();
  EXPECT_EQ(Takeovers(), 0);
  EXPECT_EQ(Logged(logs, "Detected_1 that asleep(10.0.0.6)"), 1);
  EXPECT_EQ(Logged(logs, "Detected_1 that "), 1);
}

TEST_F(StoreMonitor, SlaveJudgesAnAnsweringMasterFromTheMastersDatabase) {
  Become("slave");
  Put("slave", {{"filler", "10.0.0.8", "member", 100, 0, "0", 0, 0}});
  for (const char* side : {"master", "slave"}) {
    Put(side, {{"mhost", "127.0.0.1", "master", 100, 0, "0", 4000, 16}});
    Put(side, {{host, "127.0.0.2", "slave", 100, 0, "0", 5000, 0}});
  }
  Containers("slave");
  Connect();

  EXPECT_EQ(qor::MonitorOnSlave(0), 0);
  const char* query = "select hostname, status from clusters where role = 'master';";
  EXPECT_EQ(Sql("master", query), Line({"mhost", "300"}));
  EXPECT_EQ(Sql("slave", query), Line({"mhost", "300"}));
  Lines logs = Logs();
  EXPECT_EQ(Logged(logs, "Detected_2 that mhost(127.0.0.1)"), 1);
  EXPECT_EQ(Logged(logs, "DB_OLD_STAT_5: mhost(127.0.0.1) is now DB_OLD_STAT(mhost:4000 < "), 1);
  EXPECT_EQ(Logged(logs, "SLAVE detected mhost(127.0.0.1) down[id:"), 1);
  EXPECT_EQ(Takeovers(), 1);
  EXPECT_EQ(ContainerHosts("slave"),
            Line({"lumobr_1", "127.0.0.2"}) + Line({"lumobr_2", "127.0.0.2"}) +
                Line({"lumodt_1", "127.0.0.2"}) + Line({"lumobr_3", "10.0.0.9"}));
}

// The slave, cut off from the master, leaves the sweep to a master its database shows active; with
// itself the only active one there, it sweeps its database.
TEST_F(StoreMonitor, SlaveSweepsOnlyWithoutAnActiveMaster) {
  Become("slave");
  qor::cnf.clustsweep = 30;
  for (int master : {100, 200}) {
    ResetTables();
    Put("slave", {{"mhost", "127.0.0.1", "master", master},
                  {host, "127.0.0.2", "slave"},
                  {"old", "10.0.0.9", "member", 200, 0, "0", 0, 31 * 60}});
    Connect({kMasterAddr});
    qor::SweepCluster();
    EXPECT_EQ(Sql("slave", "select count(*) from clusters;"), master == 100 ? "3\n" : "2\n");
  }
}

}  // namespace
}  // namespace qortest
