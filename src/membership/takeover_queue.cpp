#include "membership/takeover_queue.h"

#include "base/clock.h"
#include "base/log.h"

namespace qor {

namespace {

long Seconds(int64_t ms) {
  return static_cast<long>(ms / 1000);
}

// The end is seen by the first Advance after it: the duration may be up to a cycle longer than
// the script's own.
void LogEnd(const TakeoverRun& r) {
  const char* host = r.hostname.c_str();
  const char* address = r.ipaddress.c_str();
  long took = Seconds(r.endedMs - r.startedMs);
  if (r.status == kShellNoStatus) {
    LogError("qordown.sh for %s(%s) ended without a status (killed) after %ld s", host, address,
             took);
  } else if (r.status != 0) {
    LogError("qordown.sh for %s(%s) ended status=%d after %ld s", host, address, r.status, took);
  } else {
    LogNotice("qordown.sh for %s(%s) ended status=%d after %ld s", host, address, r.status, took);
  }
}

}  // namespace

bool TakeoverQueue::Add(const char* hostname, const char* ipaddress, int64_t nowMs) {
  if (waiting_.size() >= kTakeoverWaitMax) {
    LogError("qordown.sh for %s(%s) not run: %zu runs wait already", hostname, ipaddress,
             waiting_.size());
    return false;
  }
  TakeoverRun run;
  run.hostname.set(hostname);
  run.ipaddress.set(ipaddress);
  run.queuedMs = nowMs;
  if (running_) {
    LogNotice("qordown.sh for %s(%s) waits behind %zu", hostname, ipaddress, waiting_.size() + 1);
  }
  waiting_.push_back(run);
  return true;
}

std::optional<TakeoverRun> TakeoverQueue::Advance(int64_t nowMs) {
  std::optional<TakeoverRun> ended;
  if (running_) {
    TakeoverRun& r = *running_;
    r.status = PollShell(r.shell);
    if (r.status != kShellRunning) {
      r.endedMs = nowMs;
      ++(r.status >= 0 && r.status <= 255 ? tally_.endedWith[r.status] : tally_.killed);
      LogEnd(r);
      ended = r;
      running_.reset();
    } else if (nowMs - r.reportedMs >= kTakeoverReportMs) {
      r.reportedMs = nowMs;
      LogError("qordown.sh for %s(%s) still running pid=%d after %ld s", r.hostname.c_str(),
               r.ipaddress.c_str(), r.shell.pid, Seconds(nowMs - r.startedMs));
    }
  }
  // One at a time: two runs of the script side by side would work on the same rows and containers.
  while (!running_ && !waiting_.empty()) {
    TakeoverRun next = waiting_.front();
    waiting_.pop_front();
    if (!CurrentShell().Start(command_, &next.shell)) {
      LogError("qordown run error.");
      LogError("qordown.sh for %s(%s) not started", next.hostname.c_str(), next.ipaddress.c_str());
      continue;
    }
    next.startedMs = next.reportedMs = nowMs;
    ++tally_.started;
    LogNotice("qordown.sh for %s(%s) started pid=%d after %ld s in the queue",
              next.hostname.c_str(), next.ipaddress.c_str(), next.shell.pid,
              Seconds(nowMs - next.queuedMs));
    running_ = next;
  }
  return ended;
}

void TakeoverQueue::Wait(int ms) const {
  if (running_) WaitShell(running_->shell, ms);
}

void TakeoverQueue::Drain() {
  for (Advance(MonotonicMill()); running_; Advance(MonotonicMill())) {
    Wait(static_cast<int>(kTakeoverReportMs));
  }
}

}  // namespace qor
