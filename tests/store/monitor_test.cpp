// The monitors and the take-over against the two real databases: which rows of which
// database change, under which id, the lines logged, one take-over per server newly found down,
// the browser-container move from a dead peer only, and the sweep of stale members.
#include "membership/monitor.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "base/paths.h"
#include "config/qorconf.h"
#include "membership/nodedown.h"
#include "membership/watch.h"
#include "store/maintenance.h"
#include "store_fixture.h"

namespace qortest {
namespace {

class StoreMonitor : public HeartbeatTest {
 protected:
  void SetUp() override {
    HeartbeatTest::SetUp();
    // The take-over script is counted, not run: it is the platform's, not this machine's.
    auto ping = seam.real;
    seam.real = [ping](std::string& c) { return c != qor::kQordownCommand && ping(c); };
  }
  void TearDown() override {
    // The take-over scripts a test queued end within it.
    qor::WaitQordown(detector.takeovers);
    HeartbeatTest::TearDown();
  }
  // The watcher's memory of its passes, and its monotonic clock: the test moves it.
  qor::DetectorMemory detector;
  int64_t watcherMs = 1000000;
  using Monitor = int (*)(qor::NodeState&, qor::DetectorMemory&, const qor::Clocks&);
  int Pass(Monitor monitor) {
    return monitor(node, detector, {1700000000000 + watcherMs, watcherMs});
  }
  // Passes of monitor at 0, 1 and 17 s of the watcher's clock: the first sees every row (its own
  // marks stamp some), the last judges. The rows of writers change before each later pass, in
  // both databases, as their heartbeats would. The last pass's result.
  int Watch(Monitor monitor, const std::string& writers = "''") {
    int rc = 0;
    for (int64_t at : {0, 1000, 17000}) {
      if (at > 0) {
        for (const char* side : {"master", "slave"}) {
          Sql(side,
              "update clusters set updated_at = updated_at + interval 1 second where "
              "hostname in (" +
                  writers + ");");
        }
      }
      watcherMs = 1000000 + at;
      rc = Pass(monitor);
    }
    return rc;
  }
  void Containers(const std::string& side) {
    Sql(side,
        "insert into containers (containername, hostname) values ('lumobr_1', '127.0.0.1'), "
        "('lumobr_2', '127.0.0.2'), ('lumodt_1', '127.0.0.2'), ('lumobr_3', '10.0.0.9');");
  }
  std::string ContainerHosts(const std::string& side) {
    return Sql(side, "select containername, hostname from containers order by id;");
  }
  // Log lines (or commands run) that begin with head and hold tail after it.
  int Logged(const Lines& logs, const std::string& head, const std::string& tail = "") {
    return static_cast<int>(std::count_if(logs.begin(), logs.end(), [&](const std::string& l) {
      return l.rfind(head, 0) == 0 && l.find(tail, head.size()) != std::string::npos;
    }));
  }
};

TEST_F(StoreMonitor, MasterMarksSilentRowsInBothDatabasesUnderEachDatabasesId) {
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

  EXPECT_EQ(Watch(qor::MonitorOnMaster, "'fresh'"), 0);
  const std::string want = Line({"shost", "300"}) + Line({"gone", "200"}) + Line({"fresh", "100"}) +
                           Line({"asleep", "200"});
  const char* others = "select hostname, status from clusters where role != 'master' order by id;";
  EXPECT_EQ(Sql("master", others), want);
  EXPECT_EQ(Sql("slave", others), Line({"filler", "100"}) + want);
  // The template mark reaches each database's copy of the one behind.
  for (const char* side : {"master", "slave"}) {
    EXPECT_EQ(Sql(side, "select tpl_syncstate from clusters where hostname = 'fresh';"), "300\n");
  }

  const Lines logs = Logs();
  EXPECT_EQ(Logged(logs, "Detected_1 that "), 3);
  // Other tools match the whole lines; only the times and the row's figures in them vary.
  EXPECT_EQ(Logged(logs, "Detected_1 that gone(10.0.0.9)<",
                   "> has not been updated for more than 15 seconds since the current time<"),
            1);
  for (const char* line :
       {"DB_OLD_STAT_4: shost(127.0.0.2) is now DB_OLD_STAT(127.0.0.1:5000 > shost:4000)",
        "monitoronmaster(1) lastwritemill -> 5000 4000",
        "MASTER detected shost(127.0.0.2) down[id:", "MASTER detected gone(10.0.0.9) down[id:"}) {
    EXPECT_EQ(Logged(logs, line), 1) << line;
  }
  // The pass returned with the first script running and the second waiting.
  EXPECT_EQ(Logged(seam.commands, qor::kQordownCommand), 1);
  held.Release(0);
  held.Release(4);
  qor::WaitQordown(detector.takeovers);
  EXPECT_EQ(Logged(seam.commands, qor::kQordownCommand), 2);
  EXPECT_EQ(Logged(Logs(), "qordown.sh for gone(10.0.0.9) ended status=4 after "), 1);
  // A ping that hangs holds the monitor a minute at most.
  EXPECT_LE(*std::max_element(seam.bounds.begin(), seam.bounds.end()), 60);
  // Only the dead slave's browser containers come to the master.
  EXPECT_EQ(ContainerHosts("master"),
            Line({"lumobr_1", "127.0.0.1"}) + Line({"lumobr_2", "127.0.0.1"}) +
                Line({"lumodt_1", "127.0.0.2"}) + Line({"lumobr_3", "10.0.0.9"}));
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

  EXPECT_EQ(Watch(qor::MonitorOnSlave), 0);
  const char* query = "select hostname, status from clusters where role = 'master';";
  EXPECT_EQ(Sql("master", query), Line({"mhost", "300"}));
  EXPECT_EQ(Sql("slave", query), Line({"mhost", "300"}));
  Lines logs = Logs();
  EXPECT_EQ(Logged(logs, "Detected_2 that mhost(127.0.0.1)"), 1);
  EXPECT_EQ(Logged(logs, "DB_OLD_STAT_5: mhost(127.0.0.1) is now DB_OLD_STAT(mhost:4000 < "), 1);
  EXPECT_EQ(Logged(logs, "SLAVE detected mhost(127.0.0.1) down[id:"), 1);
  EXPECT_EQ(Logged(seam.commands, qor::kQordownCommand), 1);
  EXPECT_EQ(ContainerHosts("slave"),
            Line({"lumobr_1", "127.0.0.2"}) + Line({"lumobr_2", "127.0.0.2"}) +
                Line({"lumodt_1", "127.0.0.2"}) + Line({"lumobr_3", "10.0.0.9"}));
}

// A take-over the slave held while it looked cut off is settled once the master answers: kept
// while the master's database shows the member active and silent, dropped once it shows the
// master's verdict.
TEST_F(StoreMonitor, SlaveSettlesItsHeldTakeoversAgainstTheMastersVerdict) {
  Become("slave");
  for (const char* side : {"master", "slave"}) {
    Put(side, {{"mhost", "127.0.0.1", "master", 100, 0, "0", 0, 0},
               {host, "127.0.0.2", "slave", 100, 0, "0", 0, 0},
               {"gone", "10.0.0.9", "member", 100, 0, "0", 0, 30}});
  }
  Connect();
  detector.takeovers.Hold("gone", "10.0.0.9", 0);
  for (int status : {100, 200}) {
    Sql("master",
        "update clusters set status = " + std::to_string(status) + " where hostname = 'gone';");
    Pass(qor::MonitorOnSlave);
    EXPECT_EQ(detector.takeovers.Holds("gone"), status == 100) << status;
  }
  EXPECT_EQ(Logged(Logs(), "monitoronslave(9) gone(10.0.0.9) was taken over by the master"), 1);
  EXPECT_EQ(Logged(seam.commands, qor::kQordownCommand), 0);
}

// A member marked for maintenance that goes silent: its row is marked as any other's, but no
// take-over runs until the mark expires while it is still silent. The mark reaches every
// database that answers, and expires by the database's clock.
TEST_F(StoreMonitor, AMarkedMemberIsMarkedButNotTakenOverUntilItsMarkExpires) {
  for (const char* side : {"master", "slave"}) {
    Put(side, {{host, "127.0.0.1", "master", 100, 0, "0", 0, 0},
               {"gone", "10.0.0.9", "member", 100, 0, "0", 0, 30}});
  }
  Connect({kSlaveAddr});
  EXPECT_EQ(qor::SetMaintenanceSql(qor::Db::kMaster, "gone", 30, "kernel update", "ops@h"), 0);
  EXPECT_EQ(qor::SetMaintenanceSql(qor::Db::kSlave, "gone", 30, "kernel update", "ops@h"), 500);
  Connect();
  std::vector<qor::MaintenanceMark> marks;
  qor::ReadMaintenanceSql(qor::Db::kSlave, &marks);
  EXPECT_TRUE(marks.empty()) << "the slave's database did not answer: no mark there";
  Watch(qor::MonitorOnMaster);
  EXPECT_EQ(Sql("master", "select status from clusters where hostname = 'gone';"), "200\n");
  EXPECT_EQ(Logged(Logs(),
                   "monitoronmaster(10) take-over of gone(10.0.0.9) skipped for "
                   "maintenance until "),
            1);
  watcherMs += 2000;
  Pass(qor::MonitorOnMaster);
  EXPECT_EQ(Logged(seam.commands, qor::kQordownCommand), 0);
  Sql("master", "update qorclustd_maintenance set until = now() - interval 1 second;");
  watcherMs += 16000;
  Pass(qor::MonitorOnMaster);
  qor::WaitQordown(detector.takeovers);
  EXPECT_EQ(Logged(seam.commands, qor::kQordownCommand), 1);
  qor::ReadMaintenanceSql(qor::Db::kMaster, &marks);
  EXPECT_TRUE(marks.empty()) << "an expired mark is no mark";
}

// Member rows unchanged for more than clustsweep minutes by the database clock go, never the
// master's or the slave's. The master sweeps both databases; the slave, cut off from the master,
// leaves the sweep to a master its database shows active, and sweeps its database only without
// one.
TEST_F(StoreMonitor, SweepTakesStaleMembersFromTheDatabaseItsRoleSweeps) {
  const char *all = "mhost shost m-old m-fresh\n", *swept = "mhost shost m-fresh\n";
  struct {
    const char* role;
    int master;  // the master row's status
    std::set<std::string> down;
    const char *onMaster, *onSlave;
  } cases[] = {{"master", 100, {}, swept, swept},
               {"slave", 100, {kMasterAddr}, all, all},
               {"slave", 200, {kMasterAddr}, all, swept}};
  for (const auto& c : cases) {
    Become(c.role);
    qor::cnf.clustsweep = 30;
    ResetTables();
    for (const char* side : {"master", "slave"}) {
      Put(side, {{"mhost", "127.0.0.1", "master", c.master, 0, "0", 0, 2 * 3600},
                 {"shost", "127.0.0.2", "slave", 100, 0, "0", 0, 2 * 3600},
                 {"m-old", "10.0.0.8", "member", 100, 0, "0", 0, 31 * 60},
                 {"m-fresh", "10.0.0.9", "member", 100, 0, "0", 0, 29 * 60}});
    }
    Connect(c.down);
    qor::SweepCluster();
    for (const char* side : {"master", "slave"}) {
      EXPECT_EQ(Sql(side, "select group_concat(hostname order by id separator ' ') from clusters;"),
                side == std::string("master") ? c.onMaster : c.onSlave)
          << c.role << " " << c.master << " " << side;
    }
  }
}

}  // namespace
}  // namespace qortest
