// The monitors: on the master and the slave, once per cycle right after the heartbeat (and once
// for the -monitor command), the rows of the other servers are read back and a server whose row
// stopped moving is marked inactive (200) or old (300) and handed to Qordown. Single-threaded;
// call after the pools are opened.
#pragma once

#include <cstdint>

namespace qor {

// The master row's last_writemill as last read by a monitor; kept across cycles, 0 at start.
extern int64_t MasterLastWriteMill;
// The slave's own last_writemill in its own database, as last read by the slave's monitor.
extern int64_t SlaveLastWriteMill;
// The master row's tpl_updatemill (last change of the master's template tree) as last read.
extern int64_t MasterTplUpdateMill;

// Detected_1 to Detected_4 lines logged by this process, at index kind - 1.
constexpr int kDetectedKinds = 4;
extern int64_t DetectedCount[kDetectedKinds];

// Results of the monitors.
constexpr int kMonitorDone = 0;
constexpr int kMonitorNotMine = 1;

// The master's or the slave's monitor by ClustRole; 1 for a member or any other role. A pass does
// the same work from the cycle and from -monitor.
int MonitorCluster();
int MonitorOnMaster();
int MonitorOnSlave();

}  // namespace qor
