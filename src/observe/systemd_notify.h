// What systemd learns of the daemon it runs as a Type=notify unit: which process the daemon is,
// when it is ready, that its cycle still turns (the watchdog), and one line of what it does. The
// one place that knows systemd. Every call does nothing unless systemd asked for word
// (NOTIFY_SOCKET), so a daemon started by hand behaves as without it, and the watchdog calls
// nothing unless the unit sets one (WATCHDOG_USEC). Single-threaded; call in the order below.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/fixed_text.h"
#include "membership/takeover_queue.h"

namespace qor {

// The double fork. systemd starts the invoking process and takes the daemon, its grandchild, as
// the service only when told: the invoking process must not end before that, or the service ends
// with it. Before the first fork:
void PrepareMainPidHandoff();
// In the invoking process after the first fork: returns once the daemon has told systemd its pid,
// or after kHandoffMs at most.
constexpr int kHandoffMs = 5000;
void AwaitMainPidHandoff();
// In the daemon after the second fork, before it closes its descriptors: tells systemd its pid
// and lets the invoking process go.
void CompleteMainPidHandoff();

// After each heartbeat: ready at the first, whether or not a database took the row, so that a
// server whose databases are down at boot still runs and keeps trying.
void NotifyHeartbeatDone();
// At the end of each cycle, which took cycleMs and counted servers rows: the watchdog, and the
// status line; runs: the take-over scripts' queue; slowWhat and slowMs: the step of the slow pass
// running beside the cycle and how long it runs (0: none).
void NotifyCycleDone(int servers, int64_t cycleMs, const TakeoverQueue& runs, const char* slowWhat,
                     int64_t slowMs);

// The facts of the status line.
struct DaemonStatus {
  int role = 0;                        // ClustRole
  int servers = 0;                     // rows counted this cycle
  int64_t cycleMs = 0;                 // the last cycle's length
  const char* takeoverHost = nullptr;  // the server of the take-over running, or none
  const char* takeoverAddress = nullptr;
  int64_t takeoverMs = 0;          // how long it runs
  size_t takeoversWaiting = 0;     // runs queued behind it
  const char* slowWhat = nullptr;  // the slow pass's step, or none
  int64_t slowMs = 0;              // how long the slow pass runs
};

// "member: 4 servers in the table, cycle 0.04 s", then ", take-over of HOST(ADDR) running 12 s"
// and ", 2 more waiting" when there are, and ", slow work: pull of qortemplates running 140 s"
// while a slow pass runs.
FixedText<256> FormatDaemonStatus(const DaemonStatus& s);

}  // namespace qor
