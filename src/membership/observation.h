// What this watcher has seen of the other servers' rows: for each database and host, when its
// row last changed by the server's own heartbeat and how long it has been silent since, counted
// in this process's monotonic milliseconds and only over time in which this watcher could both
// read that database and write its own heartbeat there. No stamp another machine's clock made is
// compared with this one's: a row "changed" when its updated_at text differs from the last read,
// whatever instant it names. Pure: every clock reading is the caller's. Single-threaded.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "store/clust_record.h"

namespace qor {

// A row unchanged for more seconds than this belongs to a silent server.
constexpr int64_t kSilentSeconds = 15;
constexpr int64_t kSilentMs = kSilentSeconds * 1000;
// A server "is writing" when its row changed this recently: a few cycles. The cut-off guard
// counts live evidence, not rows younger than 15 s: those cross 15 s in different passes.
constexpr int64_t kWritingMs = 6000;

struct RowWatch {
  int64_t updatedAt = 0;       // the row's updated_at as last read
  int status = 0;              // its status as last read
  int64_t observedMs = 0;      // monotonic time of the last read that held the row
  int64_t silentMs = 0;        // observed silence at observedMs
  int64_t changedMs = -1;      // when a change by the server was last seen; -1: never
  int64_t silentSinceMs = -1;  // when silentMs last crossed kSilentMs; -1 while not silent
  int64_t judgedMs = -1;       // when this watcher last wrote a status into the row
  int64_t ownStampMs = -1;     // when this watcher last wrote the row; -1: not since the last read
};

class Observations {
 public:
  // A read of db at nowMs returned rows[0 .. count-1]. complete: the read was of every row, so a
  // host missing from it has no row any more.
  void Read(Db db, ClustRecord* const* rows, int count, int64_t nowMs, bool complete);
  // This watcher could not read db, or its own heartbeat write there failed, at nowMs: silence
  // stops counting there until the next read.
  void Unreadable(Db db, int64_t nowMs);
  // This watcher wrote host's row in db (a status, a template mark): a change seen by the next
  // read, if that read comes within kWritingMs, is its own stamp, never the server writing; a
  // read much later may see the server's own writes since, and takes them as such. status: a status
  // write, which also restarts the row's judgement (a silent row is judged again 15 s later, not
  // every pass); 0 for a mark.
  void Wrote(Db db, const char* host, int64_t nowMs, int status);

  const RowWatch* Find(Db db, const char* host) const;
  // Whether host's row changed by its server within kWritingMs of nowMs, in any database.
  bool Writing(const char* host, int64_t nowMs) const;
  // Whether host was ever seen writing since this watcher started, in any database.
  bool EverWriting(const char* host) const;
  // Whether db was read at nowMs: another database's view counts only when read in the same pass.
  bool ReadAt(Db db, int64_t nowMs) const { return readMs_[Index(db)] == nowMs; }
  // Every row watched, for a record of them; Put takes one back.
  template <class F>
  void ForEach(F&& f) const {
    for (Db db : kDbs) {
      for (const auto& [host, w] : rows_[Index(db)]) f(db, host, w);
    }
  }
  void Put(Db db, const std::string& host, const RowWatch& w) { rows_[Index(db)][host] = w; }

 private:
  std::map<std::string, RowWatch> rows_[kDbCount];
  int64_t unreadableMs_[kDbCount] = {-1, -1};  // latest moment db was not readable
  int64_t readMs_[kDbCount] = {-1, -1};        // the latest successful read of db
};

// The silence of w at nowMs for a verdict: its observed silence, but no more than the time since
// this watcher last wrote its status (a row rewritten at every detection is judged every 15 s).
int64_t VerdictSilenceMs(const RowWatch& w);

}  // namespace qor
