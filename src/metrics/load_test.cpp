#include <gtest/gtest.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <string>

#include "base/log.h"
#include "config/processors.h"
#include "config/qorconf.h"
#include "metrics/containers.h"
#include "metrics/cpuinfo.h"
#include "support/fakes.h"

namespace {

using qor::cnf;
using qor::Cpu;

// maxlimit 32 / maxlimitlo 25 / maxlimithi 35 with the default rates.
qor::Cnf BandConf() {
  qor::Cnf conf;
  conf.maxlimit = 32;
  conf.maxlimitlo = 25;
  conf.maxlimithi = 35;
  return conf;
}

TEST(MetricsWeightLoad, Bands) {
  constexpr float kLoad = 0.5f;
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  struct Case {
    const char* name;
    int n;
    float clustrate, limitratelo, limitratehi, limitend;
    float expected;
  };
  const Case cases[] = {
      {"below maxlimitlo: plain", 24, 1.0f, 0.6f, 0.3f, 1.1f, kLoad},
      {"at maxlimitlo: / 0.6", 25, 1.0f, 0.6f, 0.3f, 1.1f, kLoad / 1.0f / 0.6f},
      {"below maxlimit: / 0.6", 31, 1.0f, 0.6f, 0.3f, 1.1f, kLoad / 1.0f / 0.6f},
      {"at maxlimit: / 0.3", 32, 1.0f, 0.6f, 0.3f, 1.1f, kLoad / 1.0f / 0.3f},
      {"at maxlimithi: full", 35, 1.0f, 0.6f, 0.3f, 1.1f, 1000.0f},
      {"clustrate 0: full", 0, 0.0f, 0.6f, 0.3f, 1.1f, 1000.0f},
      {"negative clustrate: full", 0, -1.0f, 0.6f, 0.3f, 1.1f, 1000.0f},
      {"clustrate 0.5 doubles", 24, 0.5f, 0.6f, 0.3f, 1.1f, 2 * kLoad},
      {"clustrate 0.5 and / 0.6", 25, 0.5f, 0.6f, 0.3f, 1.1f, kLoad / 0.5f / 0.6f},
      {"zero limitratelo in its band: full, not inf", 25, 1.0f, 0.0f, 0.3f, 1.1f, 1000.0f},
      {"zero limitratelo below its band: plain", 24, 1.0f, 0.0f, 0.3f, 1.1f, kLoad},
      {"zero limitratehi in its band: full, not inf", 32, 1.0f, 0.6f, 0.0f, 1.1f, 1000.0f},
      {"negative limitratehi in its band: full", 32, 1.0f, 0.6f, -0.3f, 1.1f, 1000.0f},
      {"all three limits 0: unweighted", 40, 1.0f, 0.0f, 0.0f, 0.0f, kLoad},
      {"all three limits 0: clustrate ignored", 24, 0.5f, 0.0f, 0.0f, 0.0f, kLoad},
      {"NaN clustrate: full", 24, kNaN, 0.6f, 0.3f, 1.1f, 1000.0f},
      {"NaN limitratelo in its band: full", 25, 1.0f, kNaN, 0.3f, 1.1f, 1000.0f},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    qor::Cnf conf = BandConf();
    conf.clustrate = c.clustrate;
    conf.limitratelo = c.limitratelo;
    conf.limitratehi = c.limitratehi;
    conf.limitend = c.limitend;
    EXPECT_FLOAT_EQ(qor::WeightLoadPerProc(kLoad, c.n, conf), c.expected);
  }
}

TEST(MetricsWeightLoad, BandsAreComparedFromTheLowest) {
  // limitend 0 with non-zero rates derives maxlimithi 0: the lower bands still apply first.
  qor::Cnf conf = BandConf();
  conf.limitend = 0.0f;
  conf.maxlimithi = 0;
  EXPECT_FLOAT_EQ(qor::WeightLoadPerProc(0.5f, 10, conf), 0.5f);
  EXPECT_FLOAT_EQ(qor::WeightLoadPerProc(0.5f, 32, conf), 1000.0f);
}

TEST(MetricsLoad, PerProcessor) {
  float load = -1.0f;
  float perProc = -1.0f;
  EXPECT_EQ(qor::getcpuloadavg(&load), 1);
  EXPECT_GE(load, 0.0f);

  EXPECT_EQ(qor::getcpuloadavgpp(4, &load, &perProc), 0);
  EXPECT_FLOAT_EQ(perProc, load / 4.0f);

  // No packages found means no cores: 0, not a division by zero.
  EXPECT_EQ(qor::getcpuloadavgpp(0, &load, &perProc), 0);
  EXPECT_EQ(perProc, 0.0f);
}

// GetCpuData measures the real machine; the tests only rely on relations between its figures.
class MetricsCpuData : public ::testing::Test {
 protected:
  // A member counts no own lumo containers, so no database is asked whatever other tests left.
  void SetUp() override {
    cnf = BandConf();
    qor::ClustRole = qor::kRoleMember;
  }
  void TearDown() override {
    Cpu = savedCpu_;
    cnf = savedCnf_;
    qor::Containers = savedContainers_;
    qor::ClustRole = savedRole_;
    qor::Xmode = savedXmode_;
  }

  // The measured load per processor, as GetCpuData reports it before weighting.
  static float Measured() {
    return Cpu.phycores != 0 ? Cpu.loadavg / static_cast<float>(Cpu.phycores) : 0.0f;
  }

 private:
  qor::CpuRecord savedCpu_ = Cpu;
  qor::Cnf savedCnf_ = cnf;
  int savedContainers_ = qor::Containers;
  int savedRole_ = qor::ClustRole;
  int savedXmode_ = qor::Xmode;
};

TEST_F(MetricsCpuData, WeighsTheMeasuredLoad) {
  struct Case {
    const char* name;
    int role, containers;
    float clustrate;
    bool zeroLimits;
    bool full;
    float clustrateAfter;
  };
  const Case cases[] = {
      {"clustrate 0: full", qor::kRoleMember, 0, 0.0f, false, true, 0.0f},
      {"clustrate 0 even without limits: full", qor::kRoleMember, 0, 0.0f, true, true, 0.0f},
      {"member below maxlimitlo: plain", qor::kRoleMember, 24, 1.0f, false, false, 1.0f},
      {"member at maxlimithi: full", qor::kRoleMember, 35, 1.0f, false, true, 1.0f},
      {"master at maxlimithi: full", qor::kRoleMaster, 35, 1.0f, false, true, 1.0f},
      {"clustrate above 1 is cut to 1", qor::kRoleMaster, 24, 3.0f, false, false, 1.0f},
      {"no limits: measured at any count", qor::kRoleMaster, 500, 1.0f, true, false, 1.0f},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    cnf = BandConf();
    qor::ClustRole = c.role;
    qor::Containers = c.containers;
    cnf.clustrate = c.clustrate;
    if (c.zeroLimits) cnf.limitratelo = cnf.limitratehi = cnf.limitend = 0.0f;
    EXPECT_EQ(qor::GetCpuData(), 0);
    EXPECT_FLOAT_EQ(Cpu.loadavgpp, c.full ? 1000.0f : Measured());
    EXPECT_FLOAT_EQ(cnf.clustrate, c.clustrateAfter);
    EXPECT_EQ(Cpu.phycores, Cpu.cores);
  }
}

std::string Printed(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string Printed(const char* fmt, ...) {
  char buf[1024];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  return buf;
}

// Also shows that a server out of the choice (clustrate 0) skips the lumo count: no line (1).
TEST_F(MetricsCpuData, TraceLinesInDebugMode) {
  struct Case {
    float clustrate;
    const char* line1;
    const char* line3;
  };
  const Case cases[] = {
      {1.0f, "_xgetcpudata(1): containers=7 maxlimit=32\n",
       "_xgetcpudata(3): clustrate=1.000000\n"},
      {0.0f, "", "_xgetcpudata(3): clustrate=0.000000\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.clustrate);
    cnf.clustrate = c.clustrate;
    qor::Xmode = 1;
    qor::Containers = 7;
    std::string out = qortest::StdoutOf([] { qor::GetCpuData(); });
    std::string expected =
        Printed("_xgetcpuinfo(1): model=%s cpus=%d cores=%d procs=%d\n", Cpu.model.c_str(),
                Cpu.cpus, Cpu.cores, Cpu.procs) +
        c.line1 + Printed("_xgetcpudata(2): cpu.model=%s\n", Cpu.model.c_str()) + c.line3 +
        Printed(
            "_xgetcpudata(4): cpus=%d phycores=%d cores=%d procs=%d loadavg=%0.2f "
            "loadavgpp=%0.2f\n",
            Cpu.cpus, Cpu.phycores, Cpu.cores, Cpu.procs, static_cast<double>(Cpu.loadavg),
            static_cast<double>(Cpu.loadavgpp)) +
        "_xgetcpudata(5): maxlimitlo=25 maxlimit=32 maxlimithi=35\n";
    EXPECT_EQ(out, expected);
  }
}

}  // namespace
