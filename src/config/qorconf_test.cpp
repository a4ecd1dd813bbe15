#include "config/qorconf.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <functional>
#include <random>
#include <string>

#include "base/log.h"
#include "config/cpuset.h"
#include "config/processors.h"
#include "support/fakes.h"
#include "lab/temp_dir.h"

namespace qor {
namespace {

// A literal's bytes, NULs included.
template <size_t N>
std::string Bytes(const char (&text)[N]) {
  return std::string(text, N - 1);
}

// One value of the reader's results, as text, so that one table can check them all.
using Probe = std::function<std::string()>;
Probe P(CnfText Cnf::*f) {
  return [f] { return std::string((cnf.*f).view()); };
}
Probe P(int Cnf::*f) {
  return [f] { return std::to_string(cnf.*f); };
}
Probe P(float Cnf::*f) {
  return [f] {
    char out[32];
    std::snprintf(out, sizeof out, "%g", static_cast<double>(cnf.*f));
    return std::string(out);
  };
}
Probe P(const int& global) {
  return [&global] { return std::to_string(global); };
}

class ConfigQorconfTest : public testing::Test {
 protected:
  void SetUp() override {
    savedCnffile_ = Cnffile;
    Reset();
  }
  void TearDown() override {
    Cnffile = savedCnffile_;
    Xmode = 0;
  }

  // The reader's results are process-wide, so every case starts from the initial state.
  void Reset() {
    cnf = Cnf{};
    Cluster = 0;
    ClustRole = kRoleOther;
    InitCpusets();
    Cpusetnum = 0;
    Cpu = CpuRecord{};
    Cpu.cores = 8;
    Cpu.procs = 16;
    CurrentSvr = "10.0.0.5";
    Xmode = 0;
  }

  int Read(const std::string& content) {
    Cnffile.set(dir_.Write("qorconf", content));
    return GetQorconf();
  }

  // The reader reports its parameter count only in its debug trace.
  int ReadAndCount(const std::string& content) {
    Xmode = 1;
    std::string out = qortest::StdoutOf([&] { EXPECT_EQ(Read(content), 0); });
    Xmode = 0;
    int count = -1;
    size_t at = out.find(" parameters are read");
    if (at != std::string::npos) std::sscanf(out.c_str() + out.rfind(": ", at), ": %d", &count);
    return count;
  }

  qorlab::TempDir dir_;
  FixedText<128> savedCnffile_;
};

TEST_F(ConfigQorconfTest, EachKeyFollowsItsRule) {
  const std::string slaveLines = "qor_cluster=1\nqor_clustrole=slave\nqor_clustmaster=10.0.0.1\n";
  struct Case {
    std::string file;
    Probe got;
    std::string want;
  } cases[] = {{"QOR_CLUSTER=1\n", P(Cluster), "1"},
               {"qor_cluster = 1\n", P(Cluster), "1"},
               {"qor_cluster='1'", P(Cluster), "1"},
               {"qor_clusterx=1\n", P(Cluster), "1"},
               {"qor_cluster=\"1\"\n", P(Cluster), "0"},
               {"qor_cluster=\"1\"\n", P(&Cnf::cluster), "0"},
               {"qor_cluster=1\r\n", P(Cluster), "0"},
               {"qor_cluster=1 1\n", P(Cluster), "0"},
               {"qor_cluster\n", P(&Cnf::cluster), "0"},
               {" qor_cluster=1\n", P(Cluster), "0"},
               {"qor_cluster=1\nqor_cluster=2\n", P(Cluster), "0"},
               {"qor_clustrole=Master\n", P(&Cnf::clustrole), "master"},
               {"qor_clustrole=SLAVE\n", P(ClustRole), "101"},
               {"qor_clustrole='member'\n", P(ClustRole), "102"},
               {"qor_clustrole=boss\n", P(ClustRole), "103"},
               {"qor_clustrole=master\nqor_clustrole=\n", P(ClustRole), "103"},
               {"qor_clustrole=\n", P(&Cnf::clustrole), "0"},
               {"qor_clustid=\n", P(&Cnf::clustid), "0"},
               {"qor_clustid=7\nqor_clustid=8\n", P(&Cnf::clustid), "8"},
               {"qor_clustmaster=\n", P(&Cnf::clustmaster), "0"},
               {"qor_clustslave=\n", P(&Cnf::clustslave), "0"},
               {"qor_clustrate=2.5\n", P(&Cnf::clustrate), "1"},
               {"qor_clustrate=-1\n", P(&Cnf::clustrate), "0"},
               {"qor_clustrate=0.5\nqor_clustrate=\n", P(&Cnf::clustrate), "1"},
               {"qor_clustrate='0.25'\n", P(&Cnf::clustrate), "0.25"},
               {"qor_clustsweep=7\nqor_clustsweep=-5\n", P(&Cnf::clustsweep), "7"},
               {"qor_clustsweep=7\nqor_clustsweep=\n", P(&Cnf::clustsweep), "0"},
               {"qor_clustsweep=7\nqor_clustsweep=5\r\n", P(&Cnf::clustsweep), "7"},
               {"qor_clustsweep= '12' \n", P(&Cnf::clustsweep), "12"},
               {"qor_clustcontrol=1\nqor_clustcontrol=1x\n", P(&Cnf::clustcontrol), "1"},
               {"qor_limitratelo=0.8\nqor_limitratelo=\n", P(&Cnf::limitratelo), "0.8"},
               {"qor_limitratehi=abc\n", P(&Cnf::limitratehi), "0"},
               {slaveLines + "qor_dbsvr=10.0.0.9\n", P(&Cnf::dbsvr), "10.0.0.1"},
               {"qor_cluster=1\nqor_clustrole=master\nqor_dbsvr=x\n", P(&Cnf::dbsvr), "0"},
               {"qor_cluster=1\nqor_clustrole=member\nqor_dbsvr=X\n", P(&Cnf::dbsvr), "x"},
               {"qor_cluster=1\nqor_clustrole=member\nqor_dbsvr=\n", P(&Cnf::dbsvr), "0"},
               {"qor_clustrole=slave\nqor_dbsvr=\n", P(&Cnf::dbsvr), "10.0.0.5"},
               {"qor_dbsvr=a=b\n", P(&Cnf::dbsvr), "a=b"},
               {"qor_dbname=\n", P(&Cnf::dbname), "qor"},
               {"qor_dbpwd=PaSs W0rd\n", P(&Cnf::dbpwd), "PaSs W0rd"},
               {"QOR_DBPWD= '\"Q\"' \n", P(&Cnf::dbpwd), "\"Q\""},
               {"qor_dbpwd=\n", P(&Cnf::dbpwd), "0"},
               {"qor_dbname=X\nqor_cldbname=\n", P(&Cnf::cldbname), "x"},
               {"qor_dbname=x\nqor_cldbname=0\n", P(&Cnf::cldbname), "x"},
               {"qor_dbname=x\nqor_cldbname=Cl\n", P(&Cnf::cldbname), "cl"},
               {"qor_dbname=x\nqor_logdbname=0\n", P(&Cnf::logdbname), "qor"},
               {"qor_logdbname=Logs\n", P(&Cnf::logdbname), "logs"},
               {"qor_netif=\n", P(&Cnf::netif), "0"},
               {"qor_netif=Eth1\t\n", P(&Cnf::netif), "eth1\t"},
               {"qor_cpuset=\n", P(&Cnf::cpuset), "all"},
               {"qor_fwsvr=x\nqor_fwsvr\n", P(&Cnf::fwsvr), ""},
               {"qor_maxproclistXYZ=5\n", P(&Cnf::maxproclist), "5"},
               {"qor_maxprocli=7\n", P(&Cnf::maxproclist), "7"},
               {"qor_usegrpmaxcon=3\n", P(&Cnf::usemaxcon), "3"},
               {"qor_usemaxcon=4\nqor_usegrpmaxcon=3\n", P(&Cnf::usemaxcon), "3"},
               {"qor_usegrpmaxcon=3\nqor_usemaxcon=4\n", P(&Cnf::usemaxcon), "4"},
               {"lumo_brborder=2\n", P(&Cnf::lumo_brborder), "2"},
               {"lumo_brbord=9\n", P(&Cnf::lumo_brborder), "9"},
               {"qor_flow=On\n", P(&Cnf::flow), "on"},
               {"qor_flow_umax=5\n", P(&Cnf::flow), ""},
               {"qor_flow_umax=5\n", P(&Cnf::flow_umax), "5"},
               {"qor_xpraproxymaster=a\nqor_xpraproxy=b\n", P(&Cnf::xpraproxymaster), "a"},
               {"qor_xpraproxymaster=a\nqor_xpraproxy=b\n", P(&Cnf::xpraproxy), "b"},
               {"qor_xpraproxyslave=s\n", P(&Cnf::xpraproxy), ""},
               {"qor_backupsavedir=/Bk\n", P(&Cnf::backupsavedir), "/Bk"},
               {"qor_proxypwd=AbC\n", P(&Cnf::proxypwd), "AbC"}};
  for (const Case& c : cases) {
    Reset();
    ASSERT_EQ(Read(c.file), 0);
    EXPECT_EQ(c.got(), c.want) << c.file.substr(0, 60);
  }
}

// Damaged files: each has a defined result and nothing is written past a buffer (the sanitizer
// build runs these too). A line longer than the reader's buffer is taken in pieces of 8191 bytes.
TEST_F(ConfigQorconfTest, DamagedFilesAreReadSafely) {
  const std::string filler(8191, 'x');
  struct Case {
    std::string file;
    Probe got;
    std::string want;
  } cases[] = {
      {"qor_clustmaster=" + std::string(10000, 'a') + "\nqor_clustid=7\n", P(&Cnf::clustmaster),
       std::string(63, 'a')},
      {"qor_clustmaster=" + std::string(10000, 'a') + "\nqor_clustid=7\n", P(&Cnf::clustid), "7"},
      {"qor_dbpwd=" + std::string(10000, 'B') + "\n", P(&Cnf::dbpwd), std::string(63, 'B')},
      {filler + "qor_clustid=42\n", P(&Cnf::clustid), "42"},
      {filler.substr(6) + "qor_clustid=42\n", P(&Cnf::clustid), "0"},
      {"qor_clustid=" + std::string(8179, '9') + "qor_netif=eth5\n", P(&Cnf::netif), "eth5"},
      {Bytes("qor_clustid=12\0"
             "34\nqor_netif=eth1\n"),
       P(&Cnf::clustid), "12"},
      {Bytes("qor_clustid=12\0"
             "34\nqor_netif=eth1\n"),
       P(&Cnf::netif), "eth1"},
      {Bytes("\0qor_clustid=5\n"), P(&Cnf::clustid), "0"},
      {Bytes("qor_clu\0ster=1\nqor_clustid=6\n"), P(&Cnf::clustid), "6"},
      {Bytes("qor_netif=\0\n"), P(&Cnf::netif), "0"},
      {"qor_clustrole=slave\r\nqor_netif=eth0\r\n", P(ClustRole), "103"},
      {"qor_clustrole=slave\r\nqor_netif=eth0\r\n", P(&Cnf::netif), "eth0\r"},
      {"qor_clustid=1\rqor_netif=eth0\r", P(&Cnf::clustid), "1\rqor_netif=eth0\r"},
      {"qor_clustid=1\rqor_netif=eth0\r", P(&Cnf::netif), "em0"},
      // Past what an int holds: the largest int, never a wrap to a negative "off".
      {"qor_clustsweep=4294967295\n", P(&Cnf::clustsweep), "2147483647"},
      {"qor_clustcontrol=" + std::string(40, '9') + "\n", P(&Cnf::clustcontrol), "2147483647"},
      {"qor_clustsweep=2147483647\n", P(&Cnf::clustsweep), "2147483647"},
      {"qor_clustsweep=" + std::string(30, '0') + "42\n", P(&Cnf::clustsweep), "42"}};
  for (const Case& c : cases) {
    Reset();
    ASSERT_EQ(Read(c.file), 0);
    EXPECT_EQ(c.got(), c.want) << c.file.substr(0, 60);
  }
}

// A line that depends on lines below it sees the initial values on the first read and the
// previous read's values afterwards.
TEST_F(ConfigQorconfTest, LinesAboveTheirDependenciesSettleOnTheSecondRead) {
  struct Case {
    const char* file;
    Probe got;
    const char *first, *second;
  } cases[] = {
      {"qor_dbsvr=10.0.0.9\nqor_cluster=1\nqor_clustrole=slave\nqor_clustmaster=10.0.0.1\n",
       P(&Cnf::dbsvr), "10.0.0.9", "10.0.0.1"},
      {"qor_cldbname=\nqor_dbname=late\n", P(&Cnf::cldbname), "qor", "late"},
      {"qor_cldbname=cl\nqor_dbname=late\n", P(&Cnf::cldbname), "cl", "cl"}};
  for (const Case& c : cases) {
    Reset();
    ASSERT_EQ(Read(c.file), 0);
    EXPECT_EQ(c.got(), c.first) << c.file;
    ASSERT_EQ(Read(c.file), 0);
    EXPECT_EQ(c.got(), c.second) << c.file;
  }
}

TEST_F(ConfigQorconfTest, ParameterCountSkipsUnknownLinesAndFiveKeys) {
  struct Case {
    const char* file;
    int count;
  } cases[] = {{"qor_cluster=1\nqor_clustid=3\nqor_clustid=4\n", 3},
               {"qor_backupsavedir=/x\nqor_proxyserver=h\nqor_proxyport=1\nqor_proxyusr=u\n"
                "qor_proxypwd=p\n",
                0},
               {"qor_perfintvl=5\nqor_proxypwd=p\nqor_usr_csvdir=d\n", 2},
               {"# qor_cluster=1\n\nqor_unknown=1\n qor_cluster=1\n", 0},
               {"qor_dbpwd\nqor_clustsweep=-5\n", 2}};
  for (const Case& c : cases) {
    Reset();
    EXPECT_EQ(ReadAndCount(c.file), c.count) << c.file;
  }
}

TEST_F(ConfigQorconfTest, EachReadKeepsAbsentKeysButResetsReserverate) {
  ASSERT_EQ(Read("qor_reserverate=0.5\nqor_limitratelo=0.9\nqor_clustid=4\nqor_cluster=1\n"), 0);
  EXPECT_FLOAT_EQ(cnf.reserverate, 0.5f);
  ASSERT_EQ(Read("qor_netif=eth2\n"), 0);
  EXPECT_FLOAT_EQ(cnf.reserverate, 0.0f);
  EXPECT_FLOAT_EQ(cnf.limitratelo, 0.9f);
  EXPECT_STREQ(cnf.clustid.c_str(), "4");
  EXPECT_EQ(Cluster, 1);
}

TEST_F(ConfigQorconfTest, MissingFileReturnsOneAndChangesNothing) {
  ASSERT_EQ(Read("qor_reserverate=0.5\nqor_cluster=1\nqor_clustrole=slave\nqor_cpuset=0-3\n"), 0);
  Cpu.cores = 6;
  Cnffile.set(dir_.path() + "/absent");
  EXPECT_EQ(GetQorconf(), 1);
  EXPECT_FLOAT_EQ(cnf.reserverate, 0.5f);
  EXPECT_EQ(Cluster, 1);
  EXPECT_EQ(ClustRole, kRoleSlave);
  EXPECT_EQ(Cpu.cores, 6);
  EXPECT_EQ(cnf.maxlimit, 16);
  EXPECT_EQ(Cpusetnum, 1);
}

TEST_F(ConfigQorconfTest, LimitsDeriveFromTheCoreCount) {
  struct Case {
    int cores;
    const char* file;
    int maxlimit, lo, hi;
  } cases[] = {{8, "", 32, 25, 35},
               {8, "qor_limitend=0\n", 32, 25, 35},
               {10, "qor_limitend=1.25\n", 40, 32, 50},
               {10, "qor_limitend=1.0125\n", 40, 32, 41},
               {10, "qor_limitend=1.3\n", 40, 32, 52},
               {10, "qor_limitend=-1\n", 40, 32, 44},
               {3, "", 12, 9, 13},
               {7, "qor_limitend=0\n", 28, 22, 30},
               {0, "", 0, 0, 0},
               {8, "qor_cpuset=0-7,16-23\n", 64, 51, 70},
               {8, "qor_limitend=inf\n", 32, 25, INT_MAX},
               {0, "qor_limitend=inf\n", 0, 0, 0},
               {8, "qor_cpuset=0-2147483646\n", INT_MAX, 1717986917, INT_MAX},
               {8, "qor_cpuset=0-2147483646\nqor_limitend=0\n", INT_MAX, 1717986917, INT_MAX}};
  for (const Case& c : cases) {
    Reset();
    Cpu.cores = c.cores;
    ASSERT_EQ(Read(c.file), 0);
    EXPECT_EQ(cnf.maxlimit, c.maxlimit) << c.cores << " " << c.file;
    EXPECT_EQ(cnf.maxlimitlo, c.lo) << c.cores << " " << c.file;
    EXPECT_EQ(cnf.maxlimithi, c.hi) << c.cores << " " << c.file;
  }
}

TEST_F(ConfigQorconfTest, CpusetLineRebuildsTheSetsAndCores) {
  struct Case {
    const char* file;
    int procs, cpusetnum;
    const char *first, *second;
    int cores;
  } cases[] = {{"qor_cpuset=0-7,16-23\n", 32, 2, "0-7", "16-23", 16},
               {"qor_cpuset=0-7,16-23\n", 16, 2, "0-7", "", 16},
               {"qor_cpuset=0-40\n", 32, 1, "0-31", "", 41},
               {"qor_cpuset=EXT36\n", 8, 2, "0-17,36-53", "18-35,54-71", 8},
               {"qor_cpuset=0-3,4-7\nqor_cpuset=all\n", 32, 0, "0-3", "4-7", 8},
               {"qor_cpuset=[0,1][2,3]\n", 32, 2, "0,1", "2,3", 8},
               {"qor_cpuset=0-3;4-7\n", 32, 0, "", "", 4}};
  for (const Case& c : cases) {
    Reset();
    Cpu.procs = c.procs;
    ASSERT_EQ(Read(c.file), 0);
    EXPECT_EQ(Cpusetnum, c.cpusetnum) << c.file;
    EXPECT_STREQ(Cpusets[0].c_str(), c.first) << c.file;
    EXPECT_STREQ(Cpusets[1].c_str(), c.second) << c.file;
    EXPECT_EQ(Cpu.cores, c.cores) << c.file;
  }
}

// This server is "own"; ClustRole starts as 101 and the copies as "prev", so that each case shows
// what it set. An empty own address must not pass as equal to an empty master or slave.
TEST_F(ConfigQorconfTest, CheckClustConfJudgesEachRole) {
  struct Case {
    int cluster;
    const char *clustid, *role, *master, *slave, *own;
    int status, clustRole;
    const char *copiedId, *copiedRole;
  } cases[] = {
      {1, "c1", "master", "own", "B", "own", 500, 100, "c1", "master"},
      {1, "c1", "master", "own", "0", "own", 500, 100, "c1", "master"},
      {1, "c1", "master", "own", "own", "own", 502, 100, "c1", "master"},
      {1, "c1", "master", "A", "B", "own", 502, 100, "c1", "master"},
      {1, "c1", "slave", "A", "own", "own", 500, 101, "c1", "slave"},
      {1, "c1", "slave", "own", "own", "own", 502, 101, "c1", "slave"},
      {1, "c1", "slave", "A", "B", "own", 502, 101, "c1", "slave"},
      {1, "c1", "slave", "", "own", "own", 502, 101, "c1", "slave"},
      {1, "c1", "member", "A", "B", "own", 500, 102, "c1", "member"},
      {1, "c1", "member", "0", "0", "own", 500, 102, "c1", "member"},
      {1, "c1", "member", "A", "own ", "own", 500, 102, "c1", "member"},
      {1, "c1", "member", "own", "B", "own", 502, 102, "c1", "member"},
      {1, "c1", "member", "A", "own", "own", 502, 102, "c1", "member"},
      {1, "c1", "member", "", "B", "own", 502, 102, "c1", "member"},
      {1, "c1", "member", "A", "", "own", 502, 102, "c1", "member"},
      {1, "c1", "boss", "A", "own", "own", 502, 103, "c1", "boss"},
      {1, "c1", "Master", "own", "B", "own", 502, 103, "c1", "Master"},
      {1, "c1", "0", "A", "B", "own", 502, 103, "c1", "0"},
      {0, "c1", "master", "own", "B", "own", 501, kRoleSlave, "prev", "prev"},
      {1, "", "master", "own", "B", "own", 502, kRoleSlave, "", "prev"},
      {1, "c1", "master", "", "B", "", 502, kRoleMaster, "c1", "master"},
      {1, "c1", "slave", "A", "", "", 502, kRoleSlave, "c1", "slave"},
  };
  for (const Case& c : cases) {
    Cluster = c.cluster;
    ClustRole = kRoleSlave;
    cnf.clustid = c.clustid;
    cnf.clustrole = c.role;
    cnf.clustmaster = c.master;
    cnf.clustslave = c.slave;
    FixedText<128> id = "prev", role = "prev";
    const std::string what = std::to_string(c.cluster) + " " + c.clustid + " " + c.role +
                             " m=" + c.master + " s=" + c.slave + " own=" + c.own;
    EXPECT_EQ(CheckClustConf(c.own, id, role), c.status) << what;
    EXPECT_EQ(ClustRole, c.clustRole) << what;
    EXPECT_STREQ(id.c_str(), c.copiedId) << what;
    EXPECT_STREQ(role.c_str(), c.copiedRole) << what;
  }
}

TEST_F(ConfigQorconfTest, KeysAfterBinaryJunkAreStillRead) {
  for (unsigned seed : {1u, 2u, 3u, 4u}) {
    Reset();
    std::mt19937 gen(seed);
    std::string junk(70000, '\0');
    for (char& ch : junk) ch = static_cast<char>(gen() & 0xff);
    ASSERT_EQ(Read(junk + "\nqor_clustid=99\nqor_cluster=1\nqor_cpuset=0-3\n"), 0) << seed;
    EXPECT_STREQ(cnf.clustid.c_str(), "99") << seed;
    EXPECT_EQ(Cluster, 1) << seed;
    EXPECT_EQ(Cpu.cores, 4) << seed;
  }
}

}  // namespace
}  // namespace qor
