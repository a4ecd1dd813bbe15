#include "metrics/utilisation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fakes.h"

namespace {

TEST(MetricsGetword, Cases) {
  struct Case {
    const char* name;
    const char* line;
    int n;
    size_t size;
    int ret;
    const char* word;
  };
  const Case cases[] = {
      {"second word", "Mem:   400   100", 1, 64, 0, "400"},
      {"first word after leading blanks", "  \t first second", 0, 64, 0, "first"},
      {"tabs separate", "a\tb\t\tc", 2, 64, 0, "c"},
      {"newline separates", "a\nb\n", 1, 64, 0, "b"},
      {"fewer words", "a b", 2, 64, 1, ""},
      {"empty line", "", 0, 64, 1, ""},
      {"separators only", " \t\n", 0, 64, 1, ""},
      {"word cut to the buffer", "abcdef xyz", 0, 4, 0, "abc"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    char out[64] = "junk";
    EXPECT_EQ(qor::getword(out, c.size, c.line, c.n), c.ret);
    EXPECT_STREQ(out, c.word);
  }
}

constexpr const char* kFreeHeader =
    "               total        used        free      shared  buff/cache   available\n";

TEST(MetricsMemUtil, SecondLineOfFree) {
  struct Case {
    const char* name;
    std::string output;
    double expected;
  };
  const Case cases[] = {
      {"memory line, not swap",
       std::string(kFreeHeader) + "Mem:         400         100         300           0\n"
                                  "Swap:       1000         500         500\n",
       0.25},
      {"all columns",
       std::string(kFreeHeader) +
           "Mem:        4000000     1000000     2500000       12      500000     2900000\n",
       0.25},
      // Unknown memory reads as idle, never NaN.
      {"total 0", std::string(kFreeHeader) + "Mem:  0  0  0\n", 0.0},
      {"header only", kFreeHeader, 0.0},
      {"blank second line", std::string(kFreeHeader) + "\n", 0.0},
      {"no output", "", 0.0},
      // A damaged output never gives NaN, infinity or a figure outside [0, 1].
      {"used beyond total", std::string(kFreeHeader) + "Mem:  100  400  0\n", 1.0},
      {"negative used", std::string(kFreeHeader) + "Mem:  100  -5  0\n", 0.0},
      {"infinite used", std::string(kFreeHeader) + "Mem:  100  inf  0\n", 0.0},
      {"infinite total", std::string(kFreeHeader) + "Mem:  inf  inf  0\n", 0.0},
      {"nan used", std::string(kFreeHeader) + "Mem:  100  nan  0\n", 0.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    qortest::FakeShell shell(c.output);
    EXPECT_DOUBLE_EQ(qor::getmemutil(), c.expected);
    EXPECT_EQ(shell.commands, std::vector<std::string>{"free"});
    EXPECT_EQ(shell.lineMaxes, std::vector<size_t>{8192u});
  }
}

TEST(MetricsMemUtil, RealFreeGivesAFraction) {
  double util = qor::getmemutil();
  EXPECT_GE(util, 0.0);
  EXPECT_LE(util, 1.0);
}

TEST(MetricsDiskUtil, Paths) {
  double root = qor::getdiskutil("/");
  EXPECT_GE(root, 0.0);
  EXPECT_LE(root, 1.0);
  EXPECT_EQ(qor::getdiskutil("/nonexistent/qor/path"), 0.0);
  EXPECT_EQ(qor::getdiskutil("/proc"), 0.0);  // a file system without blocks
}

TEST(MetricsCpuUtil, ProcStatLine) {
  struct Case {
    const char* line;
    int64_t total, idle;
  };
  const Case cases[] = {
      {"cpu  1 2 3 4 5 6 7 8 9 10\n", 36, 4},  // guest and guest_nice not added
      {"cpu  1710 0 1650 91045 288 0 42 8 0 0\n", 94743, 91045},
      {"cpu  10 20 30 40\n", 100, 40},  // an old kernel's four counters
      {"", 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    int64_t total = -1;
    int64_t idle = -1;
    qor::ParseProcStatLine(c.line, &total, &idle);
    EXPECT_EQ(total, c.total);
    EXPECT_EQ(idle, c.idle);
  }
}

TEST(MetricsCpuUtil, Between) {
  struct Case {
    const char* name;
    int64_t prevTotal, prevIdle, total, idle;
    double expected;
  };
  const Case cases[] = {
      {"quarter busy", 1000, 500, 1400, 800, 0.25},
      {"total did not move", 1000, 500, 1000, 500, 0.0},
      {"total went back", 1000, 500, 900, 450, 0.0},
      {"idle moved more than total", 1000, 500, 1100, 700, 0.0},
      {"idle went back", 1000, 500, 1100, 400, 1.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_DOUBLE_EQ(qor::CpuUtilBetween(c.prevTotal, c.prevIdle, c.total, c.idle), c.expected);
  }
}

TEST(MetricsCpuUtil, ProcStatSamples) {
  int64_t total1 = -1, idle1 = -1, total2 = -1, idle2 = -1;
  ASSERT_EQ(qor::getcpuidle(&total1, &idle1), 0);
  ASSERT_EQ(qor::getcpuidle(&total2, &idle2), 0);
  EXPECT_GT(total1, 0);
  EXPECT_GE(total1, idle1);
  EXPECT_GE(total2, total1);
  double util = qor::CpuUtilBetween(total1, idle1, total2, idle2);
  EXPECT_GE(util, 0.0);
  EXPECT_LE(util, 1.0);
}

}  // namespace
