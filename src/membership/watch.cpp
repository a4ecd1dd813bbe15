#include "membership/watch.h"

#include <sys/stat.h>

#include <cstdio>

#include "base/clock.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "membership/monitor.h"
#include "membership/nodedown.h"
#include "store/cluster_writes.h"
#include "store/pools.h"

namespace qor {

bool ObserveDb(DetectorMemory& d, const OwnRowWrites* writes, Db db, bool readOk,
               ClustRecord* const* rows, int count, int64_t nowMs, bool complete,
               const char* step) {
  // A watcher whose own heartbeat a database refused (read only, full, out of connections) sees
  // every row there go stale at once: no evidence of anyone's silence.
  int64_t failures = writes[Index(db)].failed;
  // Asked more than once in a pass (the slave reads its database twice), the answer stays.
  // The first pass knows no count to compare with; it judges nothing anyway.
  if (d.writeFailures[Index(db)] >= 0 && failures != d.writeFailures[Index(db)])
    d.writeFailedMs[Index(db)] = nowMs;
  bool writeFailed = d.writeFailedMs[Index(db)] == nowMs;
  d.writeFailures[Index(db)] = failures;
  if (writeFailed && !d.writeOutage[Index(db)]) {
    LogError(
        "%s the heartbeat of this server did not reach the database on %s: no row there is "
        "judged until it does",
        step, AddressOf(db));
  } else if (!writeFailed && d.writeOutage[Index(db)] && writes[Index(db)].lastOk) {
    LogNotice("%s the heartbeat of this server reaches the database on %s again", step,
              AddressOf(db));
  }
  if (writeFailed) d.writeOutage[Index(db)] = true;
  if (writes[Index(db)].lastOk && !writeFailed) d.writeOutage[Index(db)] = false;
  if (!readOk || writeFailed) {
    d.seen.Unreadable(db, nowMs);
    return false;
  }
  d.seen.Read(db, rows, count, nowMs, complete);
  return true;
}

const MaintenanceMark* PassMarks::Of(const char* host) {
  if (!read_) {
    read_ = true;
    for (Db db : kDbs) ReadMaintenanceSql(db, &marks_);
  }
  return MarkOf(marks_, host);
}

RowSeen SeenOf(const DetectorMemory& d, const ClustRecord& row, Db db, bool held, int64_t nowMs,
               PassMarks& marks) {
  const Observations& seen = d.seen;
  RowSeen s;
  s.status = row.status;
  s.member = row.role_id != kRoleIdMaster && row.role_id != kRoleIdSlave;
  s.held = held;
  if (const RowWatch* w = seen.Find(db, row.hostname.c_str())) {
    s.silentMs = VerdictSilenceMs(*w);
    s.rawSilentMs = w->silentMs;
  }
  if (s.rawSilentMs > kSilentMs) s.maintenance = marks.Of(row.hostname.c_str()) != nullptr;
  Db other = Other(db);
  const RowWatch* o = seen.ReadAt(other, nowMs) ? seen.Find(other, row.hostname.c_str()) : nullptr;
  if (o != nullptr) {
    s.otherSilentMs = o->silentMs;
    s.otherStatus = o->status;
    s.otherWriting = o->changedMs >= 0 && nowMs - o->changedMs <= kWritingMs;
  }
  return s;
}

GuardRow GuardRowOf(const DetectorMemory& d, const ClustRecord& row, Db db, int64_t nowMs) {
  const Observations& seen = d.seen;
  const RowWatch* w = seen.Find(db, row.hostname.c_str());
  return {
      .everWriting = seen.EverWriting(row.hostname.c_str()),
      .writing = seen.Writing(row.hostname.c_str(), nowMs),
      .silent = w != nullptr && w->silentMs > kSilentMs,
      .justSilent = w != nullptr && w->silentSinceMs >= 0 && nowMs - w->silentSinceMs <= kSilentMs,
      .status = row.status};
}

void SkipForMaintenance(DetectorMemory& d, const char* step, const ClustRecord& row,
                        PassMarks& marks, int64_t nowMs) {
  const MaintenanceMark* m = marks.Of(row.hostname.c_str());
  if (m == nullptr) return;
  char until[32];
  FormatQorDate(until, sizeof until, static_cast<time_t>(m->until), kDateTime);
  LogError("%s take-over of %s(%s) skipped for maintenance until %s by %s: %s", step,
           row.hostname.c_str(), row.ipaddress.c_str(), until, m->markedBy.c_str(),
           m->reason.c_str());
  d.takeovers.Hold(row.hostname.c_str(), row.ipaddress.c_str(), nowMs, true);
}

void SettleMaintenance(DetectorMemory& d, const char* step, const ClustRecord& row,
                       const RowSeen& seen, PassMarks& marks, int64_t nowMs) {
  TakeoverQueue& queue = d.takeovers;
  const char* host = row.hostname.c_str();
  if (!queue.HoldsForMaintenance(host)) return;
  if (d.seen.Writing(host, nowMs)) {
    LogNotice("%s %s(%s) writes again, its held take-over dropped", step, host,
              row.ipaddress.c_str());
    queue.Drop(host);
    return;
  }
  // By the verdict's silence, which restarts at this watcher's own status write: a server that
  // came back just after it has had the time to show its heartbeats.
  bool silentEverywhere =
      seen.silentMs > kSilentMs && (seen.otherSilentMs < 0 || seen.otherSilentMs > kSilentMs);
  if (!silentEverywhere || marks.Of(host) != nullptr) return;
  LogNotice("%s maintenance of %s(%s) ended while it is silent: taken over", step, host,
            row.ipaddress.c_str());
  Qordown(queue, row);
}

void PublishObservations(const DetectorMemory& d, const char* dir, const char* path) {
  std::string text;
  d.seen.ForEach([&](Db db, const std::string& host, const RowWatch& w) {
    char line[512];
    std::snprintf(line, sizeof line, "%d\t%s\t%lld\t%d\t%lld\t%lld\t%lld\t%lld\n", Index(db),
                  host.c_str(), static_cast<long long>(w.updatedAt), w.status,
                  static_cast<long long>(w.observedMs), static_cast<long long>(w.silentMs),
                  static_cast<long long>(w.changedMs), static_cast<long long>(w.judgedMs));
    text += line;
  });
  mkdir(dir, 0755);
  std::string tmp = std::string(path) + ".new";
  FILE* f = std::fopen(tmp.c_str(), "w");
  if (f == nullptr) return;
  bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  if (std::fclose(f) == 0 && ok) std::rename(tmp.c_str(), path);
}

bool LoadObservations(DetectorMemory& d, const char* path) {
  FILE* f = std::fopen(path, "r");
  if (f == nullptr) return false;
  char host[256];
  int db = 0, status = 0;
  long long updatedAt = 0, observedMs = 0, silentMs = 0, changedMs = 0, judgedMs = 0;
  while (std::fscanf(f, "%d\t%255[^\t]\t%lld\t%d\t%lld\t%lld\t%lld\t%lld\n", &db, host, &updatedAt,
                     &status, &observedMs, &silentMs, &changedMs, &judgedMs) == 8) {
    RowWatch w;
    w.updatedAt = updatedAt;
    w.status = status;
    w.observedMs = observedMs;
    w.silentMs = silentMs;
    w.changedMs = changedMs;
    w.judgedMs = judgedMs;
    d.seen.Put(db == 0 ? Db::kMaster : Db::kSlave, host, w);
  }
  std::fclose(f);
  return true;
}

void ReportOneDb(DetectorMemory& d, const char* step, const ClustRecord& row, bool oneDb) {
  std::string host = row.hostname.c_str();
  if (!oneDb) {
    d.oneDb.erase(host);
    return;
  }
  if (!d.oneDb.insert(host).second) return;
  ++d.oneDbReports;
  LogError(
      "%s %s(%s) has not been updated for more than %ld seconds here but still writes into "
      "the other database: not taken over",
      step, row.hostname.c_str(), row.ipaddress.c_str(), static_cast<long>(kSilentSeconds));
}

FixedText<16> DetectedWord(int kind) {
  FixedText<16> word;
  word.format("Detected_%d", kind);
  return word;
}

void LogDetected(DetectorMemory& d, int kind, const ClustRecord& row, int64_t now) {
  ++d.DetectedCount[kind - 1];
  LogError(
      "%s that %s(%s)<%ld> has not been updated for more than %ld seconds since the "
      "current time<%ld>",
      DetectedWord(kind).c_str(), row.hostname.c_str(), row.ipaddress.c_str(),
      static_cast<long>(row.updated_at), static_cast<long>(kSilentSeconds), static_cast<long>(now));
}

}  // namespace qor
