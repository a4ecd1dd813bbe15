// The daemon's cycle schedule as a pure function of its counters: which cycle re-checks the
// configuration, which runs the slow work, and which heartbeat writes the full row.
#pragma once

#include <cstdint>

#include "store/clust_record.h"

namespace qor {

// Seconds slept after every cycle.
constexpr int64_t Interval = 2;
// Period of the slow work in nominal seconds.
constexpr int kActInterval = 300;
// Period of the configuration re-check in nominal seconds.
constexpr int kRecheckInterval = 60;

struct LoopCounters {
  int basecounter = 0;            // cycles since the last slow-work pass
  int checkcounter = 0;           // nominal seconds since the last slow-work pass
  RowForm form = RowForm::kFull;  // the next heartbeat's row
};

struct CyclePlan {
  bool recheck;  // re-read and re-validate the configuration, refresh utilisation
  bool slow;     // template pull, role work, sweep
};

CyclePlan PlanCycle(const LoopCounters& c, int tplsync);

// Counters after a cycle that ran plan (the heartbeat already consumed c.form).
void FinishCycle(LoopCounters& c, const CyclePlan& plan);

}  // namespace qor
