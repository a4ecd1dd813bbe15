#include "daemon/schedule.h"

namespace qor {

CyclePlan PlanCycle(const LoopCounters& c, int tplsync) {
  bool due = c.checkcounter != 0;
  return {due && c.checkcounter % kRecheckInterval == 0,
          (due && c.checkcounter % kActInterval == 0) || tplsync == 1};
}

void FinishCycle(LoopCounters& c, const CyclePlan& plan) {
  c.form = plan.recheck || plan.slow ? RowForm::kFull : RowForm::kShort;
  if (plan.slow) {
    c.basecounter = 0;
    c.checkcounter = 0;
  }
  c.basecounter += 1;
  c.checkcounter += static_cast<int>(Interval);
}

}  // namespace qor
