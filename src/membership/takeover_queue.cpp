#include "membership/takeover_queue.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

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
  if (r.adopted) {
    LogNotice("qordown.sh for %s(%s) started by the previous daemon ended after %ld s", host,
              address, took);
  } else if (r.status == kShellNoStatus) {
    LogError("qordown.sh for %s(%s) ended without a status (killed) after %ld s", host, address,
             took);
  } else if (r.status != 0) {
    LogError("qordown.sh for %s(%s) ended status=%d after %ld s", host, address, r.status, took);
  } else {
    LogNotice("qordown.sh for %s(%s) ended status=%d after %ld s", host, address, r.status, took);
  }
}

TakeoverRun NewRun(const char* hostname, const char* ipaddress, int64_t nowMs) {
  TakeoverRun run;
  run.hostname.set(hostname);
  run.ipaddress.set(ipaddress);
  run.queuedMs = nowMs;
  return run;
}

bool Named(const TakeoverRun& r, const char* hostname) {
  return std::strcmp(r.hostname.c_str(), hostname) == 0;
}

// A field of the record: tab-separated, so a name holding a tab or a line end cannot be kept.
bool Recordable(const TakeoverRun& r) {
  return std::strpbrk(r.hostname.c_str(), "\t\n") == nullptr &&
         std::strpbrk(r.ipaddress.c_str(), "\t\n") == nullptr;
}

}  // namespace

int64_t ProcessStartTicks(int pid) {
  if (pid <= 0) return 0;
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string stat;
  if (!std::getline(in, stat)) return 0;
  // The command name in parentheses may hold blanks: fields are counted after its end.
  size_t close = stat.rfind(')');
  if (close == std::string::npos) return 0;
  std::istringstream fields(stat.substr(close + 1));
  std::string field;
  // Field 3 (state) is the first after the name; the start time is field 22.
  for (int i = 3; i <= 22; ++i) {
    if (!(fields >> field)) return 0;
    // A zombie has ended: its script is done.
    if (i == 3 && field == "Z") return 0;
  }
  return std::atoll(field.c_str());
}

std::vector<TakeoverQueue::Recorded> TakeoverQueue::ReadRecord(const char* path) {
  std::vector<Recorded> out;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream f(line);
    std::string state, host, ip;
    if (!std::getline(f, state, '\t') || !std::getline(f, host, '\t') ||
        !std::getline(f, ip, '\t')) {
      continue;
    }
    Recorded r{state, NewRun(host.c_str(), ip.c_str(), 0)};
    f >> r.run.shell.pid >> r.run.processStart;
    r.run.maintenance = state == "maintenance";
    out.push_back(r);
  }
  return out;
}

void TakeoverQueue::UseRecord(const char* path, int64_t nowMs) {
  record_ = path;
  std::deque<TakeoverRun> cut;
  for (Recorded& r : ReadRecord(path)) {
    TakeoverRun run = r.run;
    const char* host = run.hostname.c_str();
    const char* ip = run.ipaddress.c_str();
    run.queuedMs = nowMs;
    if (Knows(host)) continue;
    if (r.state == "held" || r.state == "maintenance") {
      LogNotice("qordown.sh for %s(%s) held by the previous daemon: held until settled", host, ip);
      held_.push_back(run);
    } else if (r.state == "waiting") {
      LogNotice("qordown.sh for %s(%s) queued by the previous daemon: queued again", host, ip);
      waiting_.push_back(run);
    } else if (r.state == "running" && run.processStart != 0 &&
               ProcessStartTicks(run.shell.pid) == run.processStart && !running_) {
      LogNotice(
          "qordown.sh for %s(%s) started by the previous daemon still runs pid=%d: waited for",
          host, ip, run.shell.pid);
      run.adopted = true;
      run.startedMs = run.reportedMs = nowMs;
      running_ = run;
    } else if (r.state == "running") {
      // Cut halfway by the end of its daemon's unit: the take-over is not done, so it runs again.
      LogError("qordown.sh for %s(%s) started by the previous daemon did not end: run again", host,
               ip);
      run.shell = BackgroundShell{};
      run.processStart = 0;
      cut.push_back(run);
    }
  }
  waiting_.insert(waiting_.begin(), cut.begin(), cut.end());
  Save();
}

void TakeoverQueue::Save() const {
  if (record_.empty()) return;
  std::string text;
  auto put = [&](const char* state, const TakeoverRun& r) {
    if (!Recordable(r)) return;
    text += std::string(state) + "\t" + r.hostname.c_str() + "\t" + r.ipaddress.c_str() + "\t" +
            std::to_string(r.shell.pid) + "\t" + std::to_string(r.processStart) + "\n";
  };
  for (const TakeoverRun& r : held_) put(r.maintenance ? "maintenance" : "held", r);
  if (running_) put("running", *running_);
  for (const TakeoverRun& r : waiting_) put("waiting", r);
  // Written whole and renamed over the old one: a daemon killed while writing leaves either.
  std::string tmp = record_ + ".new";
  FILE* f = std::fopen(tmp.c_str(), "w");
  bool ok = f != nullptr && std::fwrite(text.data(), 1, text.size(), f) == text.size();
  if (f != nullptr && std::fclose(f) != 0) ok = false;
  if (!ok || std::rename(tmp.c_str(), record_.c_str()) != 0) {
    LogError("takeover record %s not written: the next daemon may not know this queue",
             record_.c_str());
  }
}

bool TakeoverQueue::Knows(const char* hostname) const {
  auto named = [&](const TakeoverRun& r) { return Named(r, hostname); };
  return (running_ && named(*running_)) || std::any_of(waiting_.begin(), waiting_.end(), named) ||
         Holds(hostname);
}

bool TakeoverQueue::Holds(const char* hostname) const {
  return std::any_of(held_.begin(), held_.end(),
                     [&](const TakeoverRun& r) { return Named(r, hostname); });
}

bool TakeoverQueue::Hold(const char* hostname, const char* ipaddress, int64_t nowMs,
                         bool maintenance) {
  if (Knows(hostname) || held_.size() >= kTakeoverWaitMax) return false;
  held_.push_back(NewRun(hostname, ipaddress, nowMs));
  held_.back().maintenance = maintenance;
  Save();
  return true;
}

bool TakeoverQueue::HoldsForMaintenance(const char* hostname) const {
  return std::any_of(held_.begin(), held_.end(),
                     [&](const TakeoverRun& r) { return r.maintenance && Named(r, hostname); });
}

void TakeoverQueue::Drop(const char* hostname) {
  auto end = std::remove_if(held_.begin(), held_.end(),
                            [&](const TakeoverRun& r) { return Named(r, hostname); });
  if (end == held_.end()) return;
  held_.erase(end, held_.end());
  Save();
}

bool TakeoverQueue::Add(const char* hostname, const char* ipaddress, int64_t nowMs) {
  bool wasHeld = Holds(hostname);
  if (wasHeld) {
    held_.erase(std::remove_if(held_.begin(), held_.end(),
                               [&](const TakeoverRun& r) { return Named(r, hostname); }),
                held_.end());
  }
  // One death, one run: a server already queued or running is not queued twice.
  if (Knows(hostname)) {
    if (wasHeld) Save();
    LogNotice("qordown.sh for %s(%s) queued already", hostname, ipaddress);
    return false;
  }
  if (waiting_.size() >= kTakeoverWaitMax) {
    if (wasHeld) Save();
    LogError("qordown.sh for %s(%s) not run: %zu runs wait already", hostname, ipaddress,
             waiting_.size());
    return false;
  }
  if (running_) {
    LogNotice("qordown.sh for %s(%s) waits behind %zu", hostname, ipaddress, waiting_.size() + 1);
  }
  waiting_.push_back(NewRun(hostname, ipaddress, nowMs));
  Save();
  return true;
}

std::optional<TakeoverRun> TakeoverQueue::Advance(int64_t nowMs) {
  std::optional<TakeoverRun> ended;
  if (running_) {
    TakeoverRun& r = *running_;
    if (r.adopted) {
      r.status = ProcessStartTicks(r.shell.pid) == r.processStart ? kShellRunning : kShellNoStatus;
    } else {
      r.status = PollShell(r.shell);
    }
    if (r.status != kShellRunning) {
      r.endedMs = nowMs;
      if (!r.adopted)
        ++(r.status >= 0 && r.status <= 255 ? tally_.endedWith[r.status] : tally_.killed);
      LogEnd(r);
      ended = r;
      running_.reset();
      Save();
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
    // Recorded as running before the script starts: a daemon that dies in between leaves a run
    // that the next one finds cut, and runs again.
    running_ = next;
    Save();
    if (!CurrentShell().Start(command_, &next.shell)) {
      running_.reset();
      Save();
      LogError("qordown run error.");
      LogError("qordown.sh for %s(%s) not started", next.hostname.c_str(), next.ipaddress.c_str());
      continue;
    }
    next.processStart = ProcessStartTicks(next.shell.pid);
    next.startedMs = next.reportedMs = nowMs;
    ++tally_.started;
    LogNotice("qordown.sh for %s(%s) started pid=%d after %ld s in the queue",
              next.hostname.c_str(), next.ipaddress.c_str(), next.shell.pid,
              Seconds(nowMs - next.queuedMs));
    running_ = next;
    Save();
  }
  return ended;
}

void TakeoverQueue::Wait(int ms) const {
  if (running_ && !running_->adopted) WaitShell(running_->shell, ms);
}

void TakeoverQueue::Drain() {
  for (Advance(MonotonicMill()); running_; Advance(MonotonicMill())) {
    if (running_->adopted) {
      // Not this process's child: nothing to wait on but time.
      struct timespec second = {1, 0};
      nanosleep(&second, nullptr);
    } else {
      Wait(static_cast<int>(kTakeoverReportMs));
    }
  }
}

}  // namespace qor
