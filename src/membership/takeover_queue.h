// The take-over script's runs, one per server found down: queued in the order the servers were
// found, started one at a time through the shell runner's Start, never waited for by the cycle
// and never killed. Advance, called once per cycle and after each Add, collects the end of the
// run in progress and starts the next without blocking; Drain blocks until every run has ended
// and is for a one-shot command only. Each start and end, and every kTakeoverReportMs of a run
// still going, is logged with the server the run is for. Single-threaded. The queue is held in
// memory only: a process that ends loses the runs still waiting.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

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
  // Queues a run for the server found down at nowMs; false (logged) when kTakeoverWaitMax runs
  // wait already.
  bool Add(const char* hostname, const char* ipaddress, int64_t nowMs);
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
  const char* command_;
  std::optional<TakeoverRun> running_;
  std::deque<TakeoverRun> waiting_;
  TakeoverTally tally_;
};

}  // namespace qor
