// The cycle loop's schedule.
#include <gtest/gtest.h>

#include <tuple>

#include "daemon/schedule.h"

namespace qor {
namespace {

// The cycle loop's schedule, cycle by cycle from fresh counters.
TEST(Schedule, EachCycleFromTheCounters) {
  // tplsyncAt: the cycle in which a Tplsync request is raised (0: none); form: the row the
  // cycle's heartbeat writes.
  struct {
    int tplsyncAt = 0, cycle = 0;
    bool recheck = false, slow = false;
    RowForm form = RowForm::kShort;
  } rows[] = {
      {.cycle = 1, .form = RowForm::kFull},
      {.cycle = 2},
      {.cycle = 31, .recheck = true},
      {.cycle = 32, .form = RowForm::kFull},
      {.cycle = 61, .recheck = true},
      {.cycle = 151, .recheck = true, .slow = true},
      {.cycle = 152, .form = RowForm::kFull},
      {.cycle = 181, .recheck = true},
      {.cycle = 301, .recheck = true, .slow = true},
      // A request pulls at once, and the schedule starts again from there.
      {.tplsyncAt = 7, .cycle = 7, .slow = true},
      {.tplsyncAt = 7, .cycle = 37, .recheck = true},
      {.tplsyncAt = 7, .cycle = 157, .recheck = true, .slow = true},
  };
  for (const auto& r : rows) {
    LoopCounters c;
    for (int cycle = 1; cycle < r.cycle; ++cycle)
      FinishCycle(c, PlanCycle(c, cycle == r.tplsyncAt));
    const CyclePlan plan = PlanCycle(c, r.cycle == r.tplsyncAt);
    EXPECT_EQ(std::tuple(plan.recheck, plan.slow, c.form), std::tuple(r.recheck, r.slow, r.form))
        << "cycle " << r.cycle;
  }
}

}  // namespace
}  // namespace qor
