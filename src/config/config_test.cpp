// The configuration reader: one table of file -> value over the key rules, the limits derived
// from the cores, the processor sets, and the cluster-settings gate.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <tuple>

#include "config/cpuset.h"
#include "config/processors.h"
#include "config/qorconf.h"
#include "support/fakes.h"

namespace qor {
namespace {

// One value of the reader's results, as text, so that one table can check them all.
using Probe = std::function<std::string()>;
Probe P(CnfText Cnf::*f) {
  return [f] { return std::string((cnf.*f).view()); };
}
template <typename Number>
Probe P(Number Cnf::*f) {
  return [f] { return std::to_string(cnf.*f); };
}
Probe P(const int& global) {
  return [&global] { return std::to_string(global); };
}

class Config : public testing::Test {
 protected:
  void SetUp() override { saved_ = Cnffile; }
  void TearDown() override { Cnffile = saved_; }

  // The reader's results are process-wide, so every case starts from the initial state.
  int Read(const std::string& content, int cores = 8, int procs = 16) {
    cnf = Cnf{};
    Cluster = 0;
    ClustRole = kRoleOther;
    Cpu = CpuRecord{};
    Cpu.cores = cores;
    Cpu.procs = procs;
    CurrentSvr = "10.0.0.5";
    file_.Write(content);
    Cnffile.set(file_.path);
    return GetQorconf();
  }

  qortest::TempFile file_;
  FixedText<128> saved_;
};

TEST_F(Config, EachKeyFollowsItsRule) {
  const std::string slave = "qor_cluster=1\nqor_clustrole=slave\nqor_clustmaster=10.0.0.1\n";
  struct {
    std::string file;
    Probe got;
    std::string want;
  } cases[] = {
      {"QOR_CLUSTER=1\n", P(Cluster), "1"},
      {"qor_cluster = 1\n", P(Cluster), "1"},
      {"qor_cluster=\"1\"\n", P(Cluster), "0"},
      {"qor_cluster=1\r\n", P(Cluster), "0"},
      {" qor_cluster=1\n", P(Cluster), "0"},
      {"qor_clustrole=SLAVE\n", P(ClustRole), "101"},
      {"qor_clustrole='member'\n", P(ClustRole), "102"},
      {"qor_clustrole=boss\n", P(ClustRole), "103"},
      {"qor_clustmaster=m\nqor_clustslave=s\n", P(&Cnf::clustslave), "s"},
      {"qor_clustslave=\n", P(&Cnf::clustslave), "0"},
      {"qor_clustrate=2.5\n", P(&Cnf::clustrate), "1.000000"},
      {"qor_clustrate='0.25'\n", P(&Cnf::clustrate), "0.250000"},
      {"qor_clustsweep=7\nqor_clustsweep=-5\n", P(&Cnf::clustsweep), "7"},
      {"qor_clustsweep=4294967295\n", P(&Cnf::clustsweep), "2147483647"},
      {slave + "qor_dbsvr=10.0.0.9\n", P(&Cnf::dbsvr), "10.0.0.1"},
      {"qor_cluster=1\nqor_clustrole=member\nqor_dbsvr=X\n", P(&Cnf::dbsvr), "x"},
      {"qor_dbname=\n", P(&Cnf::dbname), "qor"},
      {"", P(&Cnf::dbname), "qor"},
      {"QOR_DBPWD= '\"Q\"' \n", P(&Cnf::dbpwd), "\"Q\""},
      {"qor_dbname=X\nqor_cldbname=\n", P(&Cnf::cldbname), "x"},
      {"qor_flow=On\n", P(&Cnf::flow), "on"},
      {"qor_xpraproxymaster=a\nqor_xpraproxy=b\n", P(&Cnf::xpraproxy), "b"},
      // Longer than the field: cut, never written past.
      {"qor_dbpwd=" + std::string(10000, 'B') + "\nqor_clustid=7\n", P(&Cnf::dbpwd),
       std::string(63, 'B')},
      {std::string(8191, 'x') + "qor_clustid=42\n", P(&Cnf::clustid), "42"},
      {"qor_clustid=12" + std::string(1, '\0') + "34\nqor_netif=eth1\n", P(&Cnf::netif), "eth1"}};
  for (const auto& c : cases) {
    ASSERT_EQ(Read(c.file), 0);
    EXPECT_EQ(c.got(), c.want) << c.file.substr(0, 60);
  }
  Cnffile.set(file_.path + ".absent");
  EXPECT_EQ(GetQorconf(), 1);
}

TEST_F(Config, LimitsAndProcessorSetsDeriveFromTheCores) {
  struct {
    int cores, procs;
    const char* file;
    int maxlimit, lo, hi, cores_after;
    const char *set0, *set1;
  } cases[] = {{8, 16, "", 32, 25, 35, 8, "", ""},
               {10, 16, "qor_limitend=1.25\n", 40, 32, 50, 10, "", ""},
               {0, 16, "", 0, 0, 0, 0, "", ""},
               {8, 16, "qor_limitend=inf\n", 32, 25, INT_MAX, 8, "", ""},
               {8, 32, "qor_cpuset=0-7,16-23\n", 64, 51, 70, 16, "0-7", "16-23"},
               {8, 32, "qor_cpuset=0-40\n", 164, 131, 180, 41, "0-31", ""},
               {8, 8, "qor_cpuset=EXT36\n", 32, 25, 35, 8, "0-17,36-53", "18-35,54-71"},
               {8, 32, "qor_cpuset=[0,1][2,3]\n", 32, 25, 35, 8, "0,1", "2,3"}};
  for (const auto& c : cases) {
    ASSERT_EQ(Read(c.file, c.cores, c.procs), 0);
    EXPECT_EQ(std::tuple(cnf.maxlimit, cnf.maxlimitlo, cnf.maxlimithi, Cpu.cores,
                         std::string(cnf.Cpusets[0].c_str()), std::string(cnf.Cpusets[1].c_str())),
              std::tuple(c.maxlimit, c.lo, c.hi, c.cores_after, c.set0, c.set1))
        << c.file;
  }
}

// This server is "own". An empty own address must not pass as equal to an empty master or slave.
TEST_F(Config, ClusterSettingsGateJudgesEachRole) {
  struct {
    int cluster;
    const char *clustid, *role, *master, *slave, *own;
    int status, clustRole;
  } cases[] = {
      {1, "c1", "master", "own", "B", "own", 500, 100},
      {1, "c1", "master", "own", "own", "own", 502, 100},
      {1, "c1", "master", "A", "B", "own", 502, 100},
      {1, "c1", "slave", "A", "own", "own", 500, 101},
      {1, "c1", "slave", "A", "B", "own", 502, 101},
      {1, "c1", "member", "A", "B", "own", 500, 102},
      {1, "c1", "member", "A", "own", "own", 502, 102},
      {1, "c1", "boss", "A", "own", "own", 502, 103},
      {0, "c1", "master", "own", "B", "own", 501, kRoleSlave},
      {1, "", "master", "own", "B", "own", 502, kRoleSlave},
      {1, "c1", "master", "", "B", "", 502, kRoleMaster},
  };
  for (const auto& c : cases) {
    Cluster = c.cluster;
    ClustRole = kRoleSlave;
    cnf.clustid = c.clustid;
    cnf.clustrole = c.role;
    cnf.clustmaster = c.master;
    cnf.clustslave = c.slave;
    FixedText<128> id = "prev", role = "prev";
    const std::string what = std::string(c.role) + " m=" + c.master + " s=" + c.slave;
    EXPECT_EQ(CheckClustConf(c.own, id, role), c.status) << what;
    EXPECT_EQ(ClustRole, c.clustRole) << what;
  }
}

}  // namespace
}  // namespace qor
