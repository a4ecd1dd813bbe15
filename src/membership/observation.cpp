#include "membership/observation.h"

#include <algorithm>

namespace qor {

void Observations::Read(Db db, ClustRecord* const* rows, int count, int64_t nowMs, bool complete) {
  std::map<std::string, RowWatch>& seen = rows_[Index(db)];
  std::map<std::string, RowWatch> kept;
  for (int i = 0; i < count; ++i) {
    const ClustRecord& r = *rows[i];
    std::string host = r.hostname.c_str();
    auto it = seen.find(host);
    RowWatch w;
    if (it == seen.end()) {
      // First sight: how long it was silent before is unknown, so its silence starts now.
      w.observedMs = nowMs;
    } else {
      w = it->second;
      int64_t gap = nowMs - w.observedMs;
      bool interrupted = unreadableMs_[Index(db)] >= w.observedMs;
      // Time in which this watcher could not read the database, or could not write there itself,
      // is no evidence of anyone's silence. After a long outage the servers' own connections come
      // back one by one: the watcher observes afresh for 15 s before it judges.
      if (interrupted && gap > kSilentMs) w.silentMs = 0;
      if (!interrupted) w.silentMs += gap;
      bool changed = r.updated_at != w.updatedAt;
      bool ownStamp = w.ownStampMs >= 0 && nowMs - w.ownStampMs <= kWritingMs;
      // This watcher writes 200 or 300, never 100: a row made active again is its server's own
      // heartbeat, even right after a status of this watcher's.
      bool reactivated = r.status == kStatusActive && w.status != kStatusActive;
      if (changed && (!ownStamp || reactivated)) {
        w.silentMs = 0;
        w.changedMs = nowMs;
      }
      w.ownStampMs = -1;
      w.observedMs = nowMs;
    }
    w.updatedAt = r.updated_at;
    w.status = r.status;
    if (w.silentMs <= kSilentMs) {
      w.silentSinceMs = -1;
    } else if (w.silentSinceMs < 0) {
      w.silentSinceMs = nowMs;
    }
    kept[host] = w;
    if (!complete) seen[host] = w;
  }
  if (complete) seen.swap(kept);
  readMs_[Index(db)] = nowMs;
}

void Observations::Unreadable(Db db, int64_t nowMs) {
  unreadableMs_[Index(db)] = nowMs;
  readMs_[Index(db)] = -1;
}

void Observations::Wrote(Db db, const char* host, int64_t nowMs, int status) {
  auto it = rows_[Index(db)].find(host);
  if (it == rows_[Index(db)].end()) return;
  it->second.ownStampMs = nowMs;
  if (status == 0) return;
  it->second.judgedMs = nowMs;
  // As written: its server making it active again is then told from this watcher's stamp even
  // when no read came in between.
  it->second.status = status;
}

const RowWatch* Observations::Find(Db db, const char* host) const {
  auto it = rows_[Index(db)].find(host);
  return it == rows_[Index(db)].end() ? nullptr : &it->second;
}

bool Observations::Writing(const char* host, int64_t nowMs) const {
  for (const auto& seen : rows_) {
    auto it = seen.find(host);
    if (it != seen.end() && it->second.changedMs >= 0 && nowMs - it->second.changedMs <= kWritingMs)
      return true;
  }
  return false;
}

bool Observations::EverWriting(const char* host) const {
  return std::any_of(std::begin(rows_), std::end(rows_), [&](const auto& seen) {
    auto it = seen.find(host);
    return it != seen.end() && it->second.changedMs >= 0;
  });
}

int64_t VerdictSilenceMs(const RowWatch& w) {
  if (w.judgedMs < 0) return w.silentMs;
  return std::min(w.silentMs, w.observedMs - w.judgedMs);
}

}  // namespace qor
