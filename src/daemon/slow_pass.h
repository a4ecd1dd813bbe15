// The slow pass (template pulls, container-row release, profile synchronisations, sweep) runs
// beside the cycle, in a child process of the daemon: nothing it does, however long, holds up the
// heartbeat, and it shares no memory with the cycle. At most one runs at a time; one that falls
// due while one runs waits for its end (one waiting, never a pile). Its notes (the step it is in,
// and at the end its result) come back on a pipe that the cycle reads without waiting; the cycle
// never waits for the pass, not even for its end. Single-threaded: only the cycle calls these.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "base/fixed_text.h"
#include "daemon/schedule.h"
#include "membership/node_state.h"
#include "replication/replication.h"

namespace qor {

// The longest a pass may run: each of its bounded commands (replication.h) and as long again for
// its database calls, pings and the wait for its turn. Past it the pass is stopped (and its
// result lost); the alert rule on qorclustd_slow_work_running_seconds uses the same bound.
constexpr int kSlowPassSeconds = (kTreeCommandsMax + 1) * kTreeSeconds;
// Members pull one after another rather than all in the second a template change marks them:
// each waits its turn, a second per server in the table, chosen by its host name.
constexpr int kPullSpacingSeconds = 1;
// After a failed pull a Tplsync request waits this long before the next one, so that a master
// that refuses the key is not asked again every cycle.
constexpr int kPullRetrySeconds = 60;

// The cycle's record of its slow pass. Each field is written and read by the cycle alone; the
// pass's own copy of the process ends with it.
struct SlowPass {
  pid_t pid = -1;                 // the running pass; -1 when none runs
  int fd = -1;                    // the read end of its notes
  int64_t startedMs = 0;          // monotonic time it began
  int tplsync = 0;                // the Tplsync request it answers (its value at the start)
  FixedText<64> what;             // the step it is in, from its notes: status line and metric
  bool waiting = false;           // one fell due while it ran: starts at its end
  TplRecord record;               // the last good pull's record, until both databases took it
  int64_t retryAtMs = 0;          // no Tplsync pull before this monotonic time (a failed pull)
  bool done = false;              // its result arrived
  TemplatePull LastTemplatePull;  // the last pull a pass handed back, for the metrics
};

// Seconds the running pass has run (0 when none runs), for the status line and the metric.
int64_t SlowPassRunningMs(const SlowPass& p, int64_t nowMs);

// The Tplsync request the schedule sees: none while a pass runs (a pull under way answers every
// mark it finds) or while a failed pull waits for its retry.
int SlowRequest(int tplsync, const SlowPass& p, int64_t nowMs);

// The turn of a member among servers: seconds to wait before its pull (0 for the slave).
int PullTurnSeconds(int role, const char* hostname, int servers);

// Starts the pass (when none runs; else it waits), logging the line of its start with counters
// and sequence (then incremented).
// The pass is handed node's host name, row count and Tplsync request as they are now.
void StartSlowPass(SlowPass& p, const LoopCounters& counters, int64_t* sequence,
                   const NodeState& node);

// Takes in the running pass's notes without waiting; at its end, its result (Tplsync consumed,
// the pull's record, p.LastTemplatePull). A pass past kSlowPassSeconds is stopped. 1 when the pass
// ended by a local failure that ends the daemon (a command that could not be started).
// tplsync: the node's Tplsync request, which a pass that pulled consumes.
int CollectSlowPass(SlowPass& p, int64_t nowMs, int& tplsync);

}  // namespace qor
