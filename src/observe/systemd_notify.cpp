#include "observe/systemd_notify.h"

#include <poll.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdlib>

#include "base/clock.h"
#include "config/qorconf.h"
#include "membership/nodedown.h"
#include "store/cluster_query.h"

namespace qor {

namespace {

// How long the daemon waits for systemd to have read its pid; shorter than kHandoffMs, so that
// the invoking process does not leave before.
constexpr uint64_t kBarrierUsec = 3000000;

// The pipe of the hand-off: the daemon closes its write end once systemd knows its pid, and the
// invoking process waits for the end of file. Made before the first fork, closed by each side.
int handoff[2] = {-1, -1};
// Set by the first NotifyHeartbeatDone: READY=1 goes once.
bool readySent = false;

bool Watched() {
  return std::getenv("NOTIFY_SOCKET") != nullptr;
}

// The unit's watchdog period in microseconds, 0 without one. sd_watchdog_enabled would always
// say none here: systemd names the process it started in WATCHDOG_PID, not the daemon.
uint64_t WatchdogUsec() {
  const char* text = Watched() ? std::getenv("WATCHDOG_USEC") : nullptr;
  return text != nullptr ? std::strtoull(text, nullptr, 10) : 0;
}

void CloseHandoff(int end) {
  if (handoff[end] >= 0) close(handoff[end]);
  handoff[end] = -1;
}

}  // namespace

void PrepareMainPidHandoff() {
  // Without the pipe the invoking process leaves at once, as it does when started by hand.
  if (Watched() && pipe(handoff) != 0) handoff[0] = handoff[1] = -1;
}

void AwaitMainPidHandoff() {
  if (handoff[0] < 0) return;
  CloseHandoff(1);
  pollfd end = {handoff[0], POLLIN, 0};
  int64_t deadline = MonotonicMill() + kHandoffMs;
  int64_t left = kHandoffMs;
  for (int tries = 0; tries < 10 && left > 0; ++tries, left = deadline - MonotonicMill()) {
    if (poll(&end, 1, static_cast<int>(left)) >= 0 || errno != EINTR) break;
  }
  CloseHandoff(0);
}

void CompleteMainPidHandoff() {
  if (handoff[1] < 0) return;
  CloseHandoff(0);
  sd_notifyf(0, "MAINPID=%d", static_cast<int>(getpid()));
  sd_notify_barrier(0, kBarrierUsec);
  CloseHandoff(1);
}

void NotifyHeartbeatDone() {
  if (readySent || !Watched()) return;
  readySent = true;
  sd_notify(0, "READY=1");
}

void NotifyCycleDone(int servers, int64_t cycleMs, const TakeoverQueue& runs, const char* slowWhat,
                     int64_t slowMs) {
  if (!Watched()) return;
  DaemonStatus s;
  s.role = ClustRole;
  s.servers = servers;
  s.cycleMs = cycleMs;
  if (const TakeoverRun* run = runs.running()) {
    s.takeoverHost = run->hostname.c_str();
    s.takeoverAddress = run->ipaddress.c_str();
    s.takeoverMs = MonotonicMill() - run->startedMs;
  }
  s.takeoversWaiting = runs.waiting();
  if (slowMs > 0) {
    s.slowWhat = slowWhat;
    s.slowMs = slowMs;
  }
  FixedText<512> message;
  uint64_t usec = WatchdogUsec();
  if (usec == 0) {
    message.format("STATUS=%s", FormatDaemonStatus(s).c_str());
  } else {
    message.format("STATUS=%s\nWATCHDOG=1", FormatDaemonStatus(s).c_str());
  }
  sd_notify(0, message.c_str());
}

FixedText<256> FormatDaemonStatus(const DaemonStatus& s) {
  const char* role = s.role == kRoleMaster   ? "master"
                     : s.role == kRoleSlave  ? "slave"
                     : s.role == kRoleMember ? "member"
                                             : "no role";
  FixedText<256> takeover, waiting, slow, line;
  if (s.takeoverHost != nullptr) {
    takeover.format(", take-over of %s(%s) running %" PRId64 " s", s.takeoverHost,
                    s.takeoverAddress, s.takeoverMs / 1000);
  }
  if (s.takeoversWaiting > 0) waiting.format(", %zu more waiting", s.takeoversWaiting);
  if (s.slowWhat != nullptr) {
    slow.format(", slow work: %s running %" PRId64 " s", s.slowWhat, s.slowMs / 1000);
  }
  line.format("%s: %d server%s in the table, cycle %" PRId64 ".%02" PRId64 " s%s%s%s", role,
              s.servers, s.servers == 1 ? "" : "s", s.cycleMs / 1000, s.cycleMs % 1000 / 10,
              takeover.c_str(), waiting.c_str(), slow.c_str());
  return line;
}

}  // namespace qor
