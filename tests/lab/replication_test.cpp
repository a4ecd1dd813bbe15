// The shared trees of a running cluster: a change to the master's templates reaches the slave and
// the members through the loop of mark, heartbeat and pull, deletions included; the slave's slow
// work runs the platform's profile synchronisations and releases stale browser rows in its own
// database.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

namespace fs = std::filesystem;

using LabReplication = LabCluster;

// Host i's template state and the time its copy was recorded as pulled, in database db.
std::string TplOf(const Lab& lab, int db, int i) {
  return lab.Sql(db, "select tpl_syncstate, tpl_syncmill from clusters where hostname='" +
                         lab.Info(i).name + "';");
}

// Host i's template copy recorded as pulled at or after since, in both databases.
bool Synced(const Lab& lab, int i, int64_t since) {
  const std::string query =
      "select tpl_syncstate = 100 and tpl_syncmill >= " + std::to_string(since) +
      " from clusters where hostname='" + lab.Info(i).name + "';";
  return lab.Sql(kMaster, query) == "1\n" && lab.Sql(kSlave, query) == "1\n";
}

bool Has(Lab& lab, int i, const std::string& path) {
  return fs::exists(lab.Host(i).dir() + "/qor/" + path);
}

// The stale row in database db: "c7 lumobr_7 u7" kept, "- - -" released (the row stays).
std::string StaleRow(const Lab& lab, int db) {
  return lab.Sql(db,
                 "select concat_ws(' ', ifnull(containerid, '-'), ifnull(containername, '-'), "
                 "ifnull(username, '-')) from containers where hostname = 'h7';");
}

TEST_F(LabReplication, MasterTemplateChangeReachesEveryServerThroughTheLoop) {
  ASSERT_TRUE(StartAndJoin());
  const std::vector<int> pullers = {kSlave, kMember1, kMember2};
  // Never marked before: nobody has pulled anything yet.
  for (int i : pullers) ASSERT_FALSE(Has(lab_, i, "qortemplates")) << lab_.Info(i).name;
  lab_.Host(kMaster).Write("qortemplates/added.tpl", "added on the master\n");
  // A browser row untouched for ten minutes in both databases, due for release by a slow work.
  for (int db : {kMaster, kSlave}) {
    lab_.Sql(db,
             "insert into containers (containerid, containername, username, hostname, updated_at) "
             "values ('c7', 'lumobr_7', 'u7', 'h7', now() - interval 10 minute);");
  }

  int64_t mark = MarkTemplates(lab_);
  ASSERT_NE(mark, -1) << "the master's heartbeat kept undoing the mark";
  // The master's monitor marks, the heartbeat asks, the loop pulls: a cycle of each and the pulls.
  for (int i : pullers) {
    const std::string& name = lab_.Info(i).name;
    EXPECT_TRUE(WaitFor(15, [&] { return Synced(lab_, i, mark); }))
        << name << ": " << TplOf(lab_, kMaster, i) << " / " << TplOf(lab_, kSlave, i);
    EXPECT_TRUE(Has(lab_, i, "qortemplates/added.tpl")) << name;
    EXPECT_TRUE(Has(lab_, i, "qortemplates/qortemplates.txt")) << name;
    EXPECT_TRUE(Logged(lab_, i, "slave/member rsync started")) << name;
  }
  // Only the slave copies the whitelist and lumobr, and runs the profile synchronisations.
  EXPECT_TRUE(Has(lab_, kSlave, "wlist/wlist.txt"));
  EXPECT_TRUE(Has(lab_, kSlave, "lumobr/lumobr.txt"));
  for (int m : {kMember1, kMember2}) {
    EXPECT_FALSE(Has(lab_, m, "wlist") || Has(lab_, m, "lumobr")) << lab_.Info(m).name;
    EXPECT_TRUE(lab_.Calls(m).empty()) << lab_.Info(m).name;
  }
  // The stand-ins' SYNC_OK gave the success notices.
  EXPECT_TRUE(Logged(lab_, kSlave, "lumobr sync success") &&
              Logged(lab_, kSlave, "lumodt sync success"));
  // The slave's slow work releases the stale row in its own database; the master's has not run.
  EXPECT_EQ(StaleRow(lab_, kSlave), "- - -\n");
  EXPECT_EQ(StaleRow(lab_, kMaster), "c7 lumobr_7 u7\n");

  // What the master removes goes on the others too.
  fs::remove(lab_.Host(kMaster).dir() + "/qor/qortemplates/added.tpl");
  mark = MarkTemplates(lab_);
  ASSERT_NE(mark, -1);
  for (int i : pullers) {
    EXPECT_TRUE(WaitFor(15, [&] { return Synced(lab_, i, mark); })) << lab_.Info(i).name;
    EXPECT_FALSE(Has(lab_, i, "qortemplates/added.tpl")) << lab_.Info(i).name;
    EXPECT_TRUE(Has(lab_, i, "qortemplates/qortemplates.txt")) << lab_.Info(i).name;
  }
}

// The oldest row in either database, in seconds by the database's own clock.
int OldestRow(const Lab& lab) {
  int oldest = 0;
  for (int db : {kMaster, kSlave}) {
    std::string age =
        lab.Sql(db, "select max(timestampdiff(second, updated_at, now())) from clusters;");
    if (!age.empty() && age != "NULL\n") oldest = std::max(oldest, std::stoi(age));
  }
  return oldest;
}

// Pulls of 25 s on every server at once after a template change, and a master whose own slow work
// (the profile synchronisations) takes 20 s: the heartbeats go on beside them, nobody is taken
// for silent, and every pull still lands.
TEST_F(LabReplication, SlowPullsAndSlowWorkHoldNoHeartbeatUp) {
  // Fast daemons: the master's slow work comes every 15 s instead of every 300 s. The slave pulls
  // three trees, 75 s in all.
  for (int i = 0; i < lab_.size(); ++i) ASSERT_EQ(lab_.StartDaemon(i, true).status, 0);
  ASSERT_TRUE(WaitFor(10, [&] { return AllActive(lab_, kMaster) && AllActive(lab_, kSlave); }));
  // The first pulls of a new cluster, quick, are done before the slow ones begin.
  ASSERT_TRUE(WaitFor(20, [&] {
    return Synced(lab_, kSlave, 1) && Synced(lab_, kMember1, 1) && Synced(lab_, kMember2, 1);
  }));
  ASSERT_EQ(lab_.SlowPulls(25), "");
  ASSERT_EQ(lab_.Shell(kMaster, "sed -i '2i sleep 20' /var/www/html/qor/qorbin/lumobrstat").status,
            0);
  const int64_t mark = MarkTemplates(lab_);
  ASSERT_NE(mark, -1);
  int oldest = 0, pulls = 0;
  bool synced = false;
  for (int tick = 0; tick < 480 && !synced; ++tick) {
    oldest = std::max(oldest, OldestRow(lab_));
    // One pass at a time: a member never runs two pulls (two ssh) at once.
    pulls = std::max(pulls, std::atoi(lab_.Shell(kMember1, "pgrep -cx ssh").out.c_str()));
    synced =
        Synced(lab_, kSlave, mark) && Synced(lab_, kMember1, mark) && Synced(lab_, kMember2, mark);
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
  EXPECT_TRUE(synced);
  EXPECT_LE(oldest, 4);
  EXPECT_EQ(pulls, 1);
  for (int i = 0; i < lab_.size(); ++i) {
    EXPECT_FALSE(Logged(lab_, i, "MASTER detected") || Logged(lab_, i, "SLAVE detected"))
        << lab_.Info(i).name;
  }
  EXPECT_TRUE(Logged(lab_, kMaster, "lumobr sync success"));
}

}  // namespace
}  // namespace qorlab
