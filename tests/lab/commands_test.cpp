// The operators' commands on the hosts of a running cluster: lookups, listings of both databases,
// the target choice and a one-off heartbeat, each on the host it is meant for.
#include <gtest/gtest.h>

#include <sstream>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

using LabCommands = LabCluster;

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST_F(LabCommands, LookupsAnswerOnTheRightHosts) {
  ASSERT_TRUE(StartAndJoin());
  struct Case {
    int host;
    std::vector<std::string> args;
    const char* out;  // a regular expression for the whole output
    int status;
  } cases[] = {
      {kMaster, {"-ismaster"}, "1\n", 0},
      {kSlave, {"-ismaster"}, "0\n", 1},
      {kMember1, {"-ismaster"}, "0\n", 1},
      {kMember2, {"-master"}, "198\\.18\\.0\\.1\n", 0},
      {kMember2, {"-slave"}, "198\\.18\\.0\\.2\n", 0},
      {kMember1, {"-members"}, "198\\.18\\.0\\.3\n198\\.18\\.0\\.4\n", 0},
      {kSlave, {"-all_not_master"}, "198\\.18\\.0\\.2\n198\\.18\\.0\\.3\n198\\.18\\.0\\.4\n", 0},
      {kMaster,
       {"-all"},
       "198\\.18\\.0\\.1\n198\\.18\\.0\\.2\n198\\.18\\.0\\.3\n198\\.18\\.0\\.4\n",
       0},
      {kMember2, {"-role"}, "member\n", 0},
      {kMaster, {"-count"}, "4\n", 0},
      {kMaster, {"-target"}, "Master: Cluster Target -> 198\\.18\\.0\\.[1-4]\n", 0},
      {kSlave, {"-target"}, "Slave: Cluster Target -> 198\\.18\\.0\\.[1-4]\n", 0},
      {kMember1, {"-target"}, "Can not get cluster target on member servers!\n", 0},
      {kMember1, {"-ping", "198.18.0.2"}, "ping OK! \\(198\\.18\\.0\\.2\\)\n", 0},
      // Nothing outside the lab answers: there is no route out.
      {kMember1, {"-ping", "192.0.2.1", "1"}, "ping NG! \\(192\\.0\\.2\\.1\\)\n", 1},
  };
  for (const Case& c : cases) {
    RunResult r = lab_.Run(c.host, c.args);
    EXPECT_TRUE(FullMatch(r.out, c.out))
        << lab_.Info(c.host).name << " " << c.args[0] << ": " << r.out << r.err;
    EXPECT_EQ(r.status, c.status) << lab_.Info(c.host).name << " " << c.args[0];
  }
}

// -l from the master and -lf from the slave: both databases, every host's row active, written
// moments ago; the full form adds the cores, the utilisation and the platform version (empty
// until a daemon's first full update: an insert does not write it).
TEST_F(LabCommands, ListingsShowBothDatabases) {
  ASSERT_TRUE(StartAndJoin());
  const std::string row =
      "\\[[0-9]+\\] (qor-[a-z0-9]+) (198\\.18\\.0\\.[0-9]) lab (master|slave|member) 100 0 0 0 0 "
      "[0-9]+\\.[0-9][0-9] 0 ([0-9]+)";
  struct Case {
    int host;
    const char* word;
    std::string header;
    std::string row;
  } cases[] = {
      {kMaster, "-l",
       "[id] host ip clustid role stat lastwrt tplsyncstat tplupd tplsync loadavgpp containers "
       "updated",
       row},
      {kSlave, "-lf",
       "[id] host ip clustid role stat lastwrt tplsyncstat tplupd tplsync loadavgpp containers "
       "updated cores cpu mem disk qorver",
       row + " [0-9]+ [0-9]+\\.[0-9][0-9] [0-9]+\\.[0-9][0-9] [0-9]+\\.[0-9][0-9] (" + kLabVersion +
           ")?"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.word);
    RunResult r = lab_.Run(c.host, {c.word});
    int64_t now = ReadRows(lab_, kMaster).at(0).now;
    EXPECT_EQ(r.status, 0);
    std::vector<std::string> lines = Lines(r.out);
    ASSERT_EQ(lines.size(), 12u) << r.out;
    EXPECT_EQ(lines[0], "1.-- on master db ---------------------------------");
    EXPECT_EQ(lines[6], "2.-- on slave db ----------------------------------");
    for (int side : {0, 6}) {
      EXPECT_EQ(lines[side + 1], c.header);
      for (int i = 0; i < lab_.size(); ++i) {
        std::vector<std::string> m;
        const std::string& line = lines[side + 2 + i];
        ASSERT_TRUE(FullMatch(line, c.row, &m)) << line;
        // In the selector's order: master, slave, then the members by name.
        EXPECT_EQ(m[0], lab_.Info(i).name);
        EXPECT_EQ(m[1], lab_.Info(i).address);
        EXPECT_EQ(m[2], lab_.Info(i).role);
        EXPECT_LE(std::abs(std::stoll(m[3]) - now), 10) << line;
      }
    }
  }
}

// The target is the active host with the lowest load per processor below 1000, read from the
// master's database while it answers, on the slave too. The daemons are stopped so that the
// loads set here stay.
TEST_F(LabCommands, TargetIsTheLeastLoadedActiveHostOfTheMastersDatabase) {
  ASSERT_TRUE(StartAndJoin());
  for (int i = 0; i < lab_.size(); ++i) ASSERT_EQ(lab_.Run(i, {"-stop"}).status, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  lab_.Sql(kMaster,
           "update clusters set cpuloadavgpp=case hostname when 'qor-master' then 0.5 when "
           "'qor-slave' then 0.4 when 'qor-member1' then 0.3 else 0.2 end;");
  // The slave's database would choose otherwise.
  lab_.Sql(kSlave,
           "update clusters set cpuloadavgpp=case hostname when 'qor-member1' then 0.1 else 0.9 "
           "end;");
  struct Case {
    const char* change;  // on the master's database, before both ask
    const char* chosen;
  } cases[] = {
      {"", "198.18.0.4"},
      {"update clusters set status=200 where hostname='qor-member2';", "198.18.0.3"},
      {"update clusters set cpuloadavgpp=1000 where hostname='qor-member1';", "198.18.0.2"},
  };
  for (const Case& c : cases) {
    if (*c.change) lab_.Sql(kMaster, c.change);
    EXPECT_EQ(lab_.Run(kMaster, {"-target"}).out,
              std::string("Master: Cluster Target -> ") + c.chosen + "\n");
    EXPECT_EQ(lab_.Run(kSlave, {"-target"}).out,
              std::string("Slave: Cluster Target -> ") + c.chosen + "\n");
  }
}

// -update on a member whose daemon is stopped writes its row into both databases at once, then
// lists them.
TEST_F(LabCommands, UpdateWritesOneHeartbeatThenLists) {
  ASSERT_TRUE(StartAndJoin());
  const std::string name = lab_.Info(kMember1).name;
  ASSERT_EQ(lab_.Run(kMember1, {"-stop"}).status, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  ClusterRow m0 = RowOf(lab_, kMaster, name), s0 = RowOf(lab_, kSlave, name);
  lab_.Sql(kMaster, "update clusters set status=200 where hostname='" + name + "';");
  RunResult r = lab_.Run(kMember1, {"-update"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("1.-- on master db ---", 0), 0u) << r.out;
  ClusterRow m1 = RowOf(lab_, kMaster, name), s1 = RowOf(lab_, kSlave, name);
  EXPECT_GT(m1.updated_at, m0.updated_at);
  EXPECT_GT(s1.updated_at, s0.updated_at);
  // The master's copy comes back to active, and the slave's copy follows it in the same pass.
  EXPECT_EQ(m1.status, 100);
  EXPECT_EQ(s1.status, 100);
  EXPECT_NE(r.out.find("] qor-member1 198.18.0.3 lab member 100 "), std::string::npos) << r.out;
}

}  // namespace
}  // namespace qorlab
