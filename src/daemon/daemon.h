// The daemon process: double fork into its own session, then the endless cycle of heartbeat,
// monitoring and configuration re-check, which starts the slow work beside it (daemon/slow_pass.h).
// Also the running check, the stop command and the process listing, which find daemons by
// "qorclustd -start" in the process table.
#pragma once

#include <cstdint>

#include "base/paths.h"
#include "daemon/schedule.h"
#include "daemon/slow_pass.h"
#include "membership/node_state.h"
#include "membership/watch.h"
#include "observe/prom_metrics.h"

namespace qor {

// What the cycle keeps from one cycle to the next.
struct DaemonState {
  NodeState node;  // this node's own row and the rows it read, handed to the heartbeat and monitors
  LoopCounters counters;
  int64_t sequence = 0;     // slow-work log lines written so far
  SlowPass slow;            // the slow pass beside the cycle
  DetectorMemory detector;  // what the monitors observed in the cycles so far
  int64_t prevTotal = 0;    // last processor sample
  int64_t prevIdle = 0;
  int64_t cycles = 0;       // cycles run so far
  int64_t lastCycleUs = 0;  // the last cycle's length, its metrics file included
  int64_t startMill = 0;    // the wall clock at the end of the first cycle, for the metrics
  MetricsFile metrics;      // the metrics file's last write
  // Where each cycle leaves its metrics file; nullptr: nowhere.
  const char* metricsDir = kNodeExporterDir;
};

// The work of one cycle, from its top to its sleep, ending with the metrics file: 1 when the
// daemon must stop.
int DaemonCycle(DaemonState& s);

// Never returns in the invoking process (it exits 0 at the first fork; under systemd once the
// daemon has told systemd its pid). In the daemon it returns 1 only when the configuration is, or
// becomes, invalid. own: this node's row as the start-up filled it.
int DaemonMain(const ClustRecord& own);

// Outside an enabled cluster (or with settings that do not name this server) the program stops
// with one line, logged as a notice at start-up and as an error by a running daemon's re-check;
// the log and the pools are closed. own: this node's own row, whose cluster id and role are set
// from the configuration as it is checked. True when it stopped.
enum class StopLevel { kNotice, kError };
bool StopsOutsideCluster(ClustRecord& own, StopLevel level);
// 0 when no other daemon runs (boot 1: the count must be exactly 1, boot 0: exactly 2); 1, after
// printing why, when one does or the caller is not root: the caller then ends with status 1.
int CheckRunning(int boot);
// SIGKILL to every running daemon; 0.
int StopDaemon();
// Prints the running daemons' process lines; 0.
int ShowThisProc();

}  // namespace qor
