// The monitors: on the master and the slave, once per cycle right after the heartbeat (and once
// for the -monitor command), the rows of the other servers are read back and a server whose row
// stopped moving is marked inactive (200) or old (300) and handed to Qordown. Single-threaded;
// call after the pools are opened.
#pragma once

#include "base/clock.h"
#include "membership/node_state.h"
#include "membership/watch.h"

namespace qor {

// Results of the monitors.
constexpr int kMonitorDone = 0;
constexpr int kMonitorNotMine = 1;

// The master's or the slave's monitor by ClustRole; 1 for a member or any other role. A pass does
// the same work from the cycle and from -monitor: it judges by the memory d of the passes before
// it and by now, and leaves in d what the next pass needs. It reads the rows into n's.
int MonitorCluster(NodeState& n, DetectorMemory& d, const Clocks& now);
int MonitorOnMaster(NodeState& n, DetectorMemory& d, const Clocks& now);
int MonitorOnSlave(NodeState& n, DetectorMemory& d, const Clocks& now);

}  // namespace qor
