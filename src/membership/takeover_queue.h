// The take-over script's runs, one per server found down: held while the detector waits for
// evidence, queued in the order the servers were found, started one at a time through the shell
// runner's Start, never waited for by the cycle and never killed. Advance, called once per cycle
// and after each Add, collects the end of the run in progress and starts the next without
// blocking; Drain blocks until every run has ended and is for a one-shot command only. Each start
// and end, and every kTakeoverReportMs of a run still going, is logged with the server the run is
// for. The daemon keeps the queue in a record on disk, rewritten (by rename) before a script
// starts and when it ends, so that a restarted daemon finds what its predecessor held, queued or
// was running. Single-threaded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "base/shell.h"
#include "store/clust_record.h"

namespace qor {

// Runs that may wait behind the one in progress: as many as the table holds servers, so that a
// whole cluster found down while a script hangs is still taken over; one more is refused.
constexpr size_t kTakeoverWaitMax = Maxcluster;
// A run still going is logged this often, so that a hung script shows in the log.
constexpr int64_t kTakeoverReportMs = 5 * 60 * 1000;

// Times are of the monotonic clock, in milliseconds.
struct TakeoverRun {
  ClustText hostname, ipaddress;  // the server found down
  int64_t queuedMs = 0, startedMs = 0, reportedMs = 0, endedMs = 0;
  BackgroundShell shell;
  int64_t processStart = 0;    // the shell's start in /proc's clock ticks, to know it again
  bool adopted = false;        // started by a predecessor: its end is seen, its status is not
  bool maintenance = false;    // held: its server is marked for maintenance
  int status = kShellRunning;  // once ended: the exit status, or kShellNoStatus
};

// What a queue's runs came to so far.
struct TakeoverTally {
  int64_t started = 0;
  int64_t endedWith[256] = {};  // by exit status
  int64_t killed = 0;           // ended without a status
};

class TakeoverQueue {
 public:
  // command: what runs for every server, the same text each time.
  explicit TakeoverQueue(const char* command) : command_(command) {}
  // Keeps the queue in the file at path from now on, after taking over what it holds: held and
  // waiting runs as they were, a run whose script still runs as the one in progress, a run whose
  // script is gone without its end recorded (cut by a restart) queued again first. Logged.
  void UseRecord(const char* path, int64_t nowMs);
  // What the record at path holds, each run with its state ("held", "maintenance", "waiting",
  // "running"), without taking it over: for a reader that changes nothing.
  struct Recorded {
    std::string state;
    TakeoverRun run;
  };
  static std::vector<Recorded> ReadRecord(const char* path);

  // Queues a run for the server found down at nowMs (released from the held ones when held);
  // false (logged) when the server is queued or running already, or kTakeoverWaitMax runs wait.
  bool Add(const char* hostname, const char* ipaddress, int64_t nowMs);
  // Holds the server's take-over (maintenance: for its maintenance mark); false when it is held,
  // queued or running already.
  bool Hold(const char* hostname, const char* ipaddress, int64_t nowMs, bool maintenance = false);
  // Forgets a held take-over (settled without a run).
  void Drop(const char* hostname);
  bool Holds(const char* hostname) const;
  // Held for a maintenance mark: run once the mark is gone and the server still silent.
  bool HoldsForMaintenance(const char* hostname) const;
  // Queued, running or held: nothing more is to be done for it.
  bool Knows(const char* hostname) const;
  const std::vector<TakeoverRun>& held() const { return held_; }

  // Never blocks. Returns the run in progress once it has ended (logged), then starts the next
  // waiting run; a run that cannot be started is logged and dropped.
  std::optional<TakeoverRun> Advance(int64_t nowMs);
  // Returns when the run in progress has ended or ms have passed.
  void Wait(int ms) const;
  // Returns when every run has ended: no bound, since a take-over is never cut.
  void Drain();
  const TakeoverRun* running() const { return running_ ? &*running_ : nullptr; }
  size_t waiting() const { return waiting_.size(); }
  const TakeoverTally& tally() const { return tally_; }

 private:
  void Save() const;

  const char* command_;
  std::string record_;  // empty: kept in memory only
  std::optional<TakeoverRun> running_;
  std::deque<TakeoverRun> waiting_;
  std::vector<TakeoverRun> held_;
  TakeoverTally tally_;
};

// The start time of process pid in clock ticks since boot (/proc/PID/stat), 0 when it is gone.
int64_t ProcessStartTicks(int pid);

}  // namespace qor
