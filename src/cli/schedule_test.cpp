#include "cli/schedule.h"

#include <gtest/gtest.h>

namespace qor {
namespace {

// Runs the loop's bookkeeping for cycles 1..n; a Tplsync request is raised in cycle tplCycle.
struct Seen {
  CyclePlan plan;
  LoopCounters before;
};

std::vector<Seen> RunCycles(int n, int tplCycle = 0) {
  std::vector<Seen> seen;
  LoopCounters c;
  for (int cycle = 1; cycle <= n; ++cycle) {
    CyclePlan plan = PlanCycle(c, cycle == tplCycle ? 1 : 0);
    seen.push_back({plan, c});
    FinishCycle(c, plan);
  }
  return seen;
}

TEST(CliSchedule, CyclesOfTheFirstPasses) {
  std::vector<Seen> s = RunCycles(320);
  struct Case {
    int cycle;
    bool recheck, slow;
    int full, checkcounter, basecounter;
  } cases[] = {
      {1, false, false, 1, 0, 0},       {2, false, false, 0, 2, 1},
      {30, false, false, 0, 58, 29},    {31, true, false, 0, 60, 30},
      {32, false, false, 1, 62, 31},    {61, true, false, 0, 120, 60},
      {150, false, false, 0, 298, 149}, {151, true, true, 0, 300, 150},
      {152, false, false, 1, 2, 1},     {181, true, false, 0, 60, 30},
      {182, false, false, 1, 62, 31},   {301, true, true, 0, 300, 150},
      {302, false, false, 1, 2, 1},
  };
  for (const Case& c : cases) {
    const Seen& x = s[static_cast<size_t>(c.cycle - 1)];
    EXPECT_EQ(x.plan.recheck, c.recheck) << "cycle " << c.cycle;
    EXPECT_EQ(x.plan.slow, c.slow) << "cycle " << c.cycle;
    EXPECT_EQ(x.before.full, c.full) << "cycle " << c.cycle;
    EXPECT_EQ(x.before.checkcounter, c.checkcounter) << "cycle " << c.cycle;
    EXPECT_EQ(x.before.basecounter, c.basecounter) << "cycle " << c.cycle;
  }
}

TEST(CliSchedule, TplsyncRunsTheSlowWorkAtOnceAndRestartsTheSchedule) {
  std::vector<Seen> s = RunCycles(200, 7);
  EXPECT_TRUE(s[6].plan.slow);
  EXPECT_FALSE(s[6].plan.recheck);
  EXPECT_EQ(s[7].before.full, 1);
  EXPECT_EQ(s[7].before.checkcounter, 2);
  // The next re-check is 60 nominal seconds after the request's pass, not at the old 60.
  EXPECT_FALSE(s[30].plan.recheck);
  EXPECT_TRUE(s[36].plan.recheck);
  EXPECT_TRUE(s[156].plan.slow);
  EXPECT_TRUE(RunCycles(1, 1)[0].plan.slow) << "even the very first cycle";
}

}  // namespace
}  // namespace qor
