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

// mode: 0 from the cycle, 1 from -monitor. No monitor reads it: a pass does the same work for
// either caller. It stays so that each call still says where it comes from, as it always has.
// The master's or the slave's monitor by ClustRole; 1 for a member or any other role.
int MonitorCluster(int mode);
int MonitorOnMaster(int mode);
int MonitorOnSlave(int mode);

}  // namespace qor
