// A running cluster when servers go silent: a member's daemon killed, the master's link pulled.
// Each is seen as the platform sees it: the
// rows of both databases, the detection lines, the runs of the take-over script and where the
// browser-container rows end up.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

using LabFailover = LabCluster;

std::string Statuses(const Lab& lab, const std::string& hostname) {
  return std::to_string(RowOf(lab, kMaster, hostname).status) + " / " +
         std::to_string(RowOf(lab, kSlave, hostname).status);
}

// "name host" lines of the containers table in database db, in id order.
std::string ContainerHosts(const Lab& lab, int db) {
  return lab.Sql(db, "select containername, hostname from containers order by id;");
}

// Browser and desktop containers of the peer (host peer), and one browser container of a member.
void PutContainers(const Lab& lab, int db, int peer) {
  const std::string p = lab.Info(peer).address, m = lab.Info(kMember1).address;
  lab.Sql(db, "insert into containers (containername, hostname) values ('lumobr_1', '" + p +
                  "'), ('lumodt_1', '" + p + "'), ('lumobr_2', '" + m + "');");
}

// What PutContainers left, with the peer's browser containers on host to.
std::string MovedContainers(const Lab& lab, int peer, int to) {
  const std::string p = lab.Info(peer).address, m = lab.Info(kMember1).address,
                    t = lab.Info(to).address;
  return "lumobr_1\t" + t + "\nlumodt_1\t" + p + "\nlumobr_2\t" + m + "\n";
}

std::string Silent(const char* prefix, const LabHost& h) {
  return std::string(prefix) + " that " + h.name + "(" + h.address + ")";
}

TEST_F(LabFailover, KilledMemberIsInactiveInBothDatabasesUntilItStartsAgain) {
  ASSERT_TRUE(StartAndJoin());
  const LabHost& m = lab_.Info(kMember1);
  ASSERT_EQ(lab_.Run(kMember1, {"-stop"}).status, 0);
  // 15 s of silence, the whole seconds of updated_at, a cycle of the master; the take-over runs
  // after both status writes.
  EXPECT_TRUE(WaitFor(25, [&] { return Takeovers(lab_, kMaster) > 0; }));
  EXPECT_EQ(Statuses(lab_, m.name), "200 / 200");
  const std::string detected = Silent("Detected_1", m);
  EXPECT_TRUE(Logged(lab_, kMaster, detected));
  EXPECT_TRUE(Logged(lab_, kMaster, "MASTER detected " + m.name + "(" + m.address + ") down[id:"));
  // The status write made the row fresh; once stale again it is found again, with no second
  // take-over.
  EXPECT_TRUE(WaitFor(25, [&] { return CountLogged(lab_, kMaster, detected) >= 2; }));
  EXPECT_EQ(Takeovers(lab_, kMaster), 1);
  // Nobody else went silent, and the slave leaves the members to a master that answers.
  EXPECT_EQ(CountLogged(lab_, kMaster, "Detected_"), CountLogged(lab_, kMaster, detected));
  EXPECT_EQ(CountLogged(lab_, kSlave, "Detected_"), 0);
  EXPECT_EQ(Takeovers(lab_, kSlave), 0);

  RunResult start = lab_.Run(kMember1, {"-start_boot"});
  EXPECT_EQ(start.status, 0) << start.out << start.err;
  EXPECT_TRUE(WaitFor(10, [&] { return AllActive(lab_, kMaster) && AllActive(lab_, kSlave); }))
      << AllActive(lab_, kMaster).message() << " / " << AllActive(lab_, kSlave).message();
}

TEST_F(LabFailover, SlaveTakesOverFromAMasterCutOff) {
  ASSERT_TRUE(StartAndJoin());
  const LabHost &master = lab_.Info(kMaster), &m1 = lab_.Info(kMember1);
  PutContainers(lab_, kSlave, kMaster);
  ASSERT_TRUE(lab_.Cut(kMaster));
  // A query under way fails first, then the slave's cycles take about 11 s, most of it pinging
  // the master; the master's row is found once 15 s stale.
  EXPECT_TRUE(WaitFor(45, [&] { return Takeovers(lab_, kSlave) > 0; }));
  EXPECT_TRUE(Logged(lab_, kSlave, Silent("Detected_3", master)));
  // Neither database was written alone: the two last writes are equal.
  EXPECT_EQ(RowOf(lab_, kSlave, master.name).status, 200);
  EXPECT_TRUE(
      Logged(lab_, kSlave, "SLAVE detected " + master.name + "(" + master.address + ") down[id:"));
  EXPECT_EQ(Takeovers(lab_, kSlave), 1);
  EXPECT_EQ(ContainerHosts(lab_, kSlave), MovedContainers(lab_, kMaster, kSlave));

  // The members keep the slave's database current; one that dies now is found by the slave.
  for (int m : {kMember1, kMember2}) {
    EXPECT_TRUE(Moves(lab_, kSlave, lab_.Info(m).name, 20)) << lab_.Info(m).name;
  }
  ASSERT_EQ(lab_.Run(kMember1, {"-stop"}).status, 0);
  EXPECT_TRUE(WaitFor(45, [&] { return Takeovers(lab_, kSlave) > 1; }));
  EXPECT_TRUE(Logged(lab_, kSlave, Silent("Detected_4", m1)));
  EXPECT_EQ(RowOf(lab_, kSlave, m1.name).status, 200);
  EXPECT_EQ(RowOf(lab_, kSlave, lab_.Info(kMember2).name).status, 100);
  EXPECT_EQ(Takeovers(lab_, kSlave), 2);
  EXPECT_EQ(CountLogged(lab_, kSlave, "Detected_4"), 1);
}

}  // namespace
}  // namespace qorlab
