#include "membership/watch.h"

#include "base/clock.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "membership/monitor.h"
#include "store/cluster_writes.h"
#include "store/pools.h"

namespace qor {

DetectorMemory& Detector() {
  static DetectorMemory memory;
  return memory;
}

namespace {
int64_t (*detectorClock)() = nullptr;
}  // namespace

int64_t DetectorNowMs() {
  return detectorClock != nullptr ? detectorClock() : MonotonicMill();
}

void SetDetectorClock(int64_t (*clock)()) {
  detectorClock = clock;
}


bool ObserveDb(Db db, bool readOk, ClustRecord* const* rows, int count, int64_t nowMs,
               bool complete, const char* step) {
  DetectorMemory& d = Detector();
  // A watcher whose own heartbeat a database refused (read only, full, out of connections) sees
  // every row there go stale at once: no evidence of anyone's silence.
  int64_t failures = HeartbeatWrites[Index(db)].failed;
  // Asked more than once in a pass (the slave reads its database twice), the answer stays.
  // The first pass knows no count to compare with; it judges nothing anyway.
  if (d.writeFailures[Index(db)] >= 0 && failures != d.writeFailures[Index(db)]) d.writeFailedMs[Index(db)] = nowMs;
  bool writeFailed = d.writeFailedMs[Index(db)] == nowMs;
  d.writeFailures[Index(db)] = failures;
  if (writeFailed && !d.writeOutage[Index(db)]) {
    LogError("%s the heartbeat of this server did not reach the database on %s: no row there is "
             "judged until it does",
             step, AddressOf(db));
  } else if (!writeFailed && d.writeOutage[Index(db)] && HeartbeatWrites[Index(db)].lastOk) {
    LogNotice("%s the heartbeat of this server reaches the database on %s again", step,
              AddressOf(db));
  }
  if (writeFailed) d.writeOutage[Index(db)] = true;
  if (HeartbeatWrites[Index(db)].lastOk && !writeFailed) d.writeOutage[Index(db)] = false;
  if (!readOk || writeFailed) {
    d.seen.Unreadable(db, nowMs);
    return false;
  }
  d.seen.Read(db, rows, count, nowMs, complete);
  return true;
}

RowSeen SeenOf(const ClustRecord& row, Db db, bool held, int64_t nowMs) {
  const Observations& seen = Detector().seen;
  RowSeen s;
  s.status = row.status;
  s.member = row.role_id != kRoleIdMaster && row.role_id != kRoleIdSlave;
  s.held = held;
  if (const RowWatch* w = seen.Find(db, row.hostname.c_str())) {
    s.silentMs = VerdictSilenceMs(*w);
    s.rawSilentMs = w->silentMs;
  }
  Db other = Other(db);
  const RowWatch* o = seen.ReadAt(other, nowMs) ? seen.Find(other, row.hostname.c_str()) : nullptr;
  if (o != nullptr) {
    s.otherSilentMs = o->silentMs;
    s.otherStatus = o->status;
  }
  return s;
}

GuardRow GuardRowOf(const ClustRecord& row, Db db, int64_t nowMs) {
  const Observations& seen = Detector().seen;
  const RowWatch* w = seen.Find(db, row.hostname.c_str());
  return {.everWriting = seen.EverWriting(row.hostname.c_str()),
          .writing = seen.Writing(row.hostname.c_str(), nowMs),
          .silent = w != nullptr && w->silentMs > kSilentMs,
          .status = row.status};
}

void ReportOneDb(const char* step, const ClustRecord& row, bool oneDb) {
  DetectorMemory& d = Detector();
  std::string host = row.hostname.c_str();
  if (!oneDb) {
    d.oneDb.erase(host);
    return;
  }
  if (!d.oneDb.insert(host).second) return;
  ++d.oneDbReports;
  LogError("%s %s(%s) has not been updated for more than %ld seconds here but still writes into "
           "the other database: not taken over",
           step, row.hostname.c_str(), row.ipaddress.c_str(), static_cast<long>(kSilentSeconds));
}

void LogDetected(int kind, const ClustRecord& row, int64_t now) {
  ++DetectedCount[kind - 1];
  LogError(
      "Detected_%d that %s(%s)<%ld> has not been updated for more than 15 seconds since the "
      "current time<%ld>",
      kind, row.hostname.c_str(), row.ipaddress.c_str(), static_cast<long>(row.updated_at),
      static_cast<long>(now));
}

}  // namespace qor
