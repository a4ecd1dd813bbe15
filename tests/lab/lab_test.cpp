// The lab itself, before any daemon runs: every host is a server of its own (name, address,
// processes, platform directory, syslog), the hosts reach each other and nothing else, the
// databases and the master's sshd serve the other hosts, the stand-ins record their calls, and a
// cut link stops a host's packets until it is restored.
#include <gtest/gtest.h>

#include "lab/lab_files.h"
#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

using LabHosts = LabCluster;

// What the lab writes into a host's configuration decides the daemon's role and own address.
TEST(LabConf, NamesTheRoleTheInterfaceAndBothDatabases) {
  struct Case {
    int host;
    const char* name;
    const char* role;
    const char* address;
  } cases[] = {
      {0, "qor-master", "master", "198.18.0.1"},
      {1, "qor-slave", "slave", "198.18.0.2"},
      {2, "qor-member1", "member", "198.18.0.3"},
      {5, "qor-member4", "member", "198.18.0.6"},
  };
  for (const Case& c : cases) {
    LabHost h = LabHostAt(c.host);
    EXPECT_EQ(h.name, c.name);
    EXPECT_EQ(h.role, c.role);
    EXPECT_EQ(h.address, c.address);
    std::string conf = LabQorconf(h);
    for (const std::string& line :
         {std::string("qor_clustrole=") + c.role, std::string("qor_clustmaster=198.18.0.1"),
          std::string("qor_clustslave=198.18.0.2"), std::string("qor_netif=eth0"),
          std::string("qor_dbpwd='") + kLabDbPassword + "'"}) {
      EXPECT_NE(conf.find(line + "\n"), std::string::npos) << c.name << " lacks " << line;
    }
    // The role must be known before the database server line is read.
    EXPECT_LT(conf.find("qor_clustrole="), conf.find("qor_dbsvr="));
  }
}

TEST_F(LabHosts, EachHostIsAServerOfItsOwn) {
  for (int i = 0; i < lab_.size(); ++i) {
    const LabHost& h = lab_.Info(i);
    SCOPED_TRACE(h.name);
    EXPECT_EQ(lab_.Shell(i, "hostname").out, h.name + "\n");
    EXPECT_EQ(lab_.Shell(i, "ip -4 -o addr show dev eth0 | awk '{print $4}'").out,
              h.address + "/24\n");
    // Only the bridge's subnet: no default route, nothing reaches the real network.
    EXPECT_EQ(lab_.Shell(i, "ip route").out,
              "198.18.0.0/24 dev eth0 proto kernel scope link src " + h.address + " \n");
    EXPECT_NE(lab_.Shell(i, "ip route get 192.0.2.1 2>&1").status, 0);
    EXPECT_EQ(lab_.Shell(i, "sed -n 's/^qor_clustrole=//p' /var/www/html/qor/.qorconf").out,
              h.role + "\n");
    EXPECT_EQ(lab_.Shell(i, "cat /var/www/html/qor/.env").out,
              std::string("QOR_VERSION=") + kLabVersion + "\n");
    EXPECT_EQ(lab_.Shell(i, "stat -c %a /var/www/html/qor/qorbin/qorrunsec").out, "600\n");
    // The host's own process table: its pid 1 and what runs in it, the servers only where the
    // role has them.
    std::string ps = lab_.Shell(i, "ps -eo pid=,comm=").out;
    EXPECT_TRUE(FullMatch(ps, " +1 [^\n]*\n.*")) << ps;
    EXPECT_EQ(ps.find("mariadbd") != std::string::npos, i == kMaster || i == kSlave) << ps;
    EXPECT_EQ(ps.find("sshd") != std::string::npos, i == kMaster) << ps;
  }
}

TEST_F(LabHosts, HostsReachEachOtherOnlyWhileTheirLinkIsUp) {
  for (int i = 1; i < lab_.size(); ++i) {
    EXPECT_EQ(lab_.Shell(i, "ping -c 1 -w 2 198.18.0.1").status, 0) << lab_.Info(i).name;
  }
  ASSERT_TRUE(lab_.Cut(kSlave));
  EXPECT_NE(lab_.Shell(kMember1, "ping -c 1 -w 1 198.18.0.2").status, 0);
  EXPECT_NE(lab_.Shell(kSlave, "ping -c 1 -w 1 198.18.0.1").status, 0);
  EXPECT_EQ(lab_.Shell(kMember1, "ping -c 1 -w 2 198.18.0.1").status, 0);
  ASSERT_TRUE(lab_.Restore(kSlave));
  EXPECT_TRUE(
      WaitFor(5, [&] { return lab_.Shell(kMember1, "ping -c 1 -w 1 198.18.0.2").status == 0; }));
}

TEST_F(LabHosts, EachHostsSyslogGoesToItsOwnFile) {
  for (int i = 0; i < lab_.size(); ++i) {
    ASSERT_EQ(lab_.Shell(i, "logger -t labtest 'hello from " + lab_.Info(i).name + "'").status, 0);
  }
  for (int i = 0; i < lab_.size(); ++i) {
    SCOPED_TRACE(lab_.Info(i).name);
    EXPECT_TRUE(WaitFor(5, [&] { return Logged(lab_, i, "hello from " + lab_.Info(i).name); }));
    for (int j = 0; j < lab_.size(); ++j) {
      if (j == i) continue;
      EXPECT_FALSE(Logged(lab_, i, "hello from " + lab_.Info(j).name));
    }
  }
}

TEST_F(LabHosts, StandInsRecordEveryCallWithItsTime) {
  struct Case {
    const char* command;
    const char* answer;
  } cases[] = {
      {"lumobrstat -sync_all", "SYNC_OK\n"},
      {"lumodtstat -sync_all", "SYNC_OK\n"},
      {"/bin/bash /var/www/html/qor/qorbin/qordown.sh", ""},
  };
  for (const Case& c : cases) {
    RunResult r = lab_.Shell(kMember2, c.command);
    EXPECT_EQ(r.status, 0) << c.command << r.err;
    EXPECT_EQ(r.out, c.answer) << c.command;
  }
  std::vector<std::string> calls = lab_.Calls(kMember2);
  ASSERT_EQ(calls.size(), 3u);
  const char* line =
      "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} ([^ ]+) ?(.*)";
  const char* expected[][2] = {
      {"lumobrstat", "-sync_all"}, {"lumodtstat", "-sync_all"}, {"qordown.sh", ""}};
  for (size_t i = 0; i < calls.size(); ++i) {
    std::vector<std::string> m;
    ASSERT_TRUE(FullMatch(calls[i], line, &m)) << calls[i];
    EXPECT_EQ(m[0], expected[i][0]);
    EXPECT_EQ(m[1], expected[i][1]);
  }
  EXPECT_TRUE(lab_.Calls(kMember1).empty());
}

TEST_F(LabHosts, DatabasesServeTheOtherHostsAsQordirect) {
  for (int db : {kMaster, kSlave}) {
    EXPECT_EQ(lab_.Sql(db, "select count(*) from clusters;"), "0\n");
    for (int from = 0; from < lab_.size(); ++from) {
      RunResult r = lab_.Shell(from, "MYSQL_PWD='" + std::string(kLabDbPassword) +
                                         "' mariadb --no-defaults -h " + lab_.Info(db).address +
                                         " -uqordirect -N -B qor -e 'select count(*) from "
                                         "containers'");
      EXPECT_EQ(r.out, "0\n") << lab_.Info(from).name << " -> " << lab_.Info(db).name << r.err;
    }
  }
}

// The daemon's own pull command, as it stands, from the slave and every member.
TEST_F(LabHosts, ThePullOverSshFromTheMasterWorks) {
  for (int i = 1; i < lab_.size(); ++i) {
    SCOPED_TRACE(lab_.Info(i).name);
    RunResult r =
        lab_.Shell(i,
                   "rsync -auvzr --delete -e \"ssh -i /var/www/html/qor/qorbin/qorrunsec -o "
                   "'StrictHostKeyChecking no'\" qorrun@198.18.0.1:/var/www/html/qor/qortemplates "
                   "/var/www/html/qor && cat /var/www/html/qor/qortemplates/qortemplates.txt");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("qortemplates of the lab master\n"), std::string::npos) << r.out;
  }
  EXPECT_TRUE(Logged(lab_, kMaster, "Accepted publickey for qorrun from 198.18.0.2"));
}

}  // namespace
}  // namespace qorlab
