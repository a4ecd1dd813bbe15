#include "metrics/cpuinfo.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/log.h"
#include "base/shell.h"
#include "config/processors.h"
#include "support/fakes.h"
#include "lab/temp_dir.h"

namespace {

using qor::Cpu;

// Runs the real pipelines, on a sample file in place of /proc/cpuinfo.
struct SampleCpuinfoShell : qortest::FakeShell {
  explicit SampleCpuinfoShell(const std::string& content) : sample(dir.Write("cpuinfo", content)) {
    real = [this](std::string& c) {
      if (size_t at = c.find("/proc/cpuinfo"); at != std::string::npos) c.replace(at, 13, sample);
      return true;
    };
  }
  qorlab::TempDir dir;
  std::string sample;
};

// Keeps the process-wide processor record and debug mode as they were before the test.
class MetricsCpuinfo : public ::testing::Test {
 protected:
  void TearDown() override {
    Cpu = saved_;
    qor::Xmode = savedXmode_;
  }

 private:
  qor::CpuRecord saved_ = Cpu;
  int savedXmode_ = qor::Xmode;
};

constexpr const char* kSampleModel = "Sample(R) Server CPU X-2670 @ 2.60GHz";

// Linux numbering of two packages of 8 cores with two threads each: logical processors 0-15 are
// the first thread of every core, 16-31 the second.
std::string TwoPackagesHyperThreaded() {
  std::string s;
  for (int p = 0; p < 32; ++p) {
    s += "processor\t: " + std::to_string(p) + "\n";
    s += "vendor_id\t: SampleVendor\n";
    s += std::string("model name\t: ") + kSampleModel + "\n";
    s += "physical id\t: " + std::to_string((p / 8) % 2) + "\n";
    s += "siblings\t: 16\n";
    s += "core id\t\t: " + std::to_string(p % 8) + "\n";
    s += "cpu cores\t: 8\n";
    s += "flags\t\t: fpu vme de pse tsc ht\n\n";
  }
  return s;
}

// A virtual machine or an ARM board: processors without package, core or model lines.
std::string WithoutPackages() {
  std::string s;
  for (int p = 0; p < 4; ++p) s += "processor\t: " + std::to_string(p) + "\nBogoMIPS\t: 50.00\n\n";
  return s;
}

// Package lines without a value do not name a package.
std::string EmptyPackageIds() {
  return "processor\t: 0\nphysical id\t:\ncore id\t\t: 0\n\n"
         "processor\t: 1\nphysical id\t:\ncore id\t\t: 1\n\n";
}

TEST_F(MetricsCpuinfo, CountsFromSample) {
  struct Case {
    const char* name;
    std::string content;
    int cpus, cores, phycores, procs;
  };
  const Case cases[] = {
      {"two packages x 8 cores, hyper-threaded", TwoPackagesHyperThreaded(), 2, 16, 16, 32},
      {"no physical id lines", WithoutPackages(), 0, 0, 0, 4},
      {"physical id lines without value", EmptyPackageIds(), 0, 0, 0, 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SampleCpuinfoShell shell(c.content);
    Cpu = qor::CpuRecord{};
    qor::GetCpuinfo();
    EXPECT_EQ(Cpu.cpus, c.cpus);
    EXPECT_EQ(Cpu.cores, c.cores);
    EXPECT_EQ(Cpu.phycores, c.phycores);
    EXPECT_EQ(Cpu.procs, c.procs);
  }
}

TEST_F(MetricsCpuinfo, ModelLine) {
  struct Case {
    const char* name;
    const char* content;
    const char* model;  // "before" when the model must stay unchanged
    int length;
  };
  const Case cases[] = {
      {"leading blank stripped", "model name\t: Sample CPU 3000\n", "Sample CPU 3000", 15},
      {"blanks at both ends", "model name\t:   Sample CPU  \n", "Sample CPU", 10},
      {"cut at a colon in the model", "model name\t: Vendor: Model X\n", "Vendor", 6},
      {"first line only", "model name\t: First\nmodel name\t: Second\n", "First", 5},
      {"no model line", "processor\t: 0\n", "before", 0},
      {"blank model", "model name\t:  \n", "before", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SampleCpuinfoShell shell(c.content);
    qor::FixedText<128> model("before");
    EXPECT_EQ(qor::getcpumodel(model), c.length);
    EXPECT_EQ(model, c.model);
  }
}

TEST_F(MetricsCpuinfo, RunsThePipelinesVerbatimInOrder) {
  SampleCpuinfoShell shell(TwoPackagesHyperThreaded());
  qor::GetCpuinfo();
  const std::vector<std::string> expected = {
      "grep \"model name\" /proc/cpuinfo",
      "grep \"physical id\" /proc/cpuinfo | sort | uniq",
      "grep \"core id\" /proc/cpuinfo | sort | uniq | wc -l",
      "grep \"processor\" /proc/cpuinfo | wc -l",
  };
  EXPECT_EQ(shell.commands, expected);
  EXPECT_EQ(shell.lineMaxes, std::vector<size_t>(4, 128));
}

TEST_F(MetricsCpuinfo, TraceLineInDebugMode) {
  SampleCpuinfoShell shell(TwoPackagesHyperThreaded());
  qor::Xmode = 1;
  EXPECT_EQ(qortest::StdoutOf(qor::GetCpuinfo),
            std::string("_xgetcpuinfo(1): model=") + kSampleModel + " cpus=2 cores=16 procs=32\n");
}

TEST_F(MetricsCpuinfo, PipelineThatCannotStartEndsTheProcess) {
  qortest::FakeShell shell;
  shell.startable = false;
  int packages = 0;
  EXPECT_EXIT(qor::getcpus(&packages), ::testing::ExitedWithCode(1),
              "grep \"physical id\" /proc/cpuinfo");
}

}  // namespace
