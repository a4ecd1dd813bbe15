// Host figures from fixed input: the processor counts from a sample of /proc/cpuinfo run through
// the real pipelines, the weighted load's bands, and the utilisation arithmetic; the memory
// figure also against this machine's `free`.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <tuple>

#include "base/shell.h"
#include "config/processors.h"
#include "config/qorconf.h"
#include "metrics/cpuinfo.h"
#include "metrics/utilisation.h"
#include "support/fakes.h"

namespace {

TEST(Metrics, ProcessorCountsFromCpuinfoTakenAgainOnlyWhenItsLinesChange) {
  // Two packages of 8 cores with two threads each, as Linux numbers them; then processors
  // without package lines, as a virtual machine shows them.
  std::string ht, vm;
  for (int p = 0; p < 32; ++p) {
    ht += "processor\t: " + std::to_string(p) +
          "\nmodel name\t: Sample CPU\nphysical id\t: " + std::to_string((p / 8) % 2) +
          "\ncore id\t\t: " + std::to_string(p % 8) + "\ncpu cores\t: 8\n\n";
  }
  for (int p = 0; p < 4; ++p) vm += "processor\t: " + std::to_string(p) + "\n\n";
  struct {
    std::string content;
    int cpus, cores, phycores, procs;
  } cases[] = {{ht, 2, 16, 16, 32}, {vm, 0, 0, 0, 4}};
  qor::CpuRecord saved = qor::Cpu;
  for (const auto& c : cases) {
    qortest::TempFile sample;
    sample.Write(c.content);
    qortest::FakeShell shell;
    shell.real = [&](std::string& cmd) {
      if (size_t at = cmd.find("/proc/cpuinfo"); at != std::string::npos)
        cmd.replace(at, 13, sample.path);
      return true;
    };
    qor::Cpu = qor::CpuRecord{};
    qor::RefreshCpuinfo(sample.path.c_str());
    // A clock that moved changes none of the lines the facts come from: nothing runs again.
    sample.Write(c.content + "cpu MHz\t\t: 2400.7\n");
    qor::RefreshCpuinfo(sample.path.c_str());
    EXPECT_EQ(std::tuple(shell.commands.size(), qor::Cpu.cpus, qor::Cpu.cores, qor::Cpu.phycores,
                         qor::Cpu.procs),
              std::tuple(4u, c.cpus, c.cores, c.phycores, c.procs));
  }
  qor::Cpu = saved;
}

TEST(Metrics, WeightedLoadBands) {
  constexpr float L = 0.5f, kNaN = std::numeric_limits<float>::quiet_NaN();
  // maxlimitlo 25, maxlimit 32, maxlimithi 35; rates lo 0.6, hi 0.3 unless the row says.
  struct {
    const char* name;
    int n;
    float clustrate, lo, hi, end, want;
  } cases[] = {
      {"below the lower band", 24, 1, 0.6f, 0.3f, 1.1f, L},
      {"lower band", 25, 1, 0.6f, 0.3f, 1.1f, L / 0.6f},
      {"upper band", 32, 1, 0.6f, 0.3f, 1.1f, L / 0.3f},
      {"full", 35, 1, 0.6f, 0.3f, 1.1f, 1000},
      {"clustrate 0 takes nothing more", 0, 0, 0.6f, 0.3f, 1.1f, 1000},
      {"clustrate halves", 25, 0.5f, 0.6f, 0.3f, 1.1f, L / 0.5f / 0.6f},
      {"zero rate in its band is full, not inf", 32, 1, 0.6f, 0, 1.1f, 1000},
      {"no limits: as measured", 40, 0.5f, 0, 0, 0, L},
      {"NaN rate is full", 24, kNaN, 0.6f, 0.3f, 1.1f, 1000},
  };
  for (const auto& c : cases) {
    qor::Cnf conf;
    conf.maxlimitlo = 25;
    conf.maxlimit = 32;
    conf.maxlimithi = 35;
    conf.clustrate = c.clustrate;
    conf.limitratelo = c.lo;
    conf.limitratehi = c.hi;
    conf.limitend = c.end;
    EXPECT_FLOAT_EQ(qor::WeightLoadPerProc(L, c.n, conf), c.want) << c.name;
  }
}

TEST(Metrics, Utilisation) {
  int64_t total = -1, idle = -1;
  qor::ParseProcStatLine("cpu  1 2 3 4 5 6 7 8 9 10\n", &total, &idle);
  EXPECT_EQ(total, 36) << "guest and guest_nice are not added";
  EXPECT_EQ(idle, 4);
  EXPECT_DOUBLE_EQ(qor::CpuUtilBetween(1000, 500, 1400, 800), 0.25);
  EXPECT_DOUBLE_EQ(qor::CpuUtilBetween(1000, 500, 900, 450), 0.0) << "counters went back";
  EXPECT_DOUBLE_EQ(qor::CpuUtilBetween(1000, 500, 1100, 400), 1.0);
  // Memory: this machine's /proc/meminfo gives the figure its `free` shows, between two reads.
  double before = qor::GetMemUtil(), memTotal = 0, used = 0;
  qor::RunShell("free", qor::kShellLineMax,
                [&](char* line) { std::sscanf(line, "Mem: %lf %lf", &memTotal, &used); });
  double after = qor::GetMemUtil();
  EXPECT_NEAR(used / memTotal, (before + after) / 2, std::abs(before - after) / 2 + 1e-3);
}

}  // namespace
