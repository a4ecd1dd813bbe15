#include "membership/watch.h"

#include "base/clock.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "membership/monitor.h"
#include "store/cluster_writes.h"

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

const char* DbServer(int db) {
  return db == kMasterDb ? cnf.clustmaster.c_str() : cnf.clustslave.c_str();
}

bool ObserveDb(int db, bool readOk, ClustRecord* const* rows, int count, int64_t nowMs,
               bool complete, const char* step) {
  DetectorMemory& d = Detector();
  // A watcher whose own heartbeat a database refused (read only, full, out of connections) sees
  // every row there go stale at once: no evidence of anyone's silence.
  int64_t failures = HeartbeatWrites[db].failed;
  // Asked more than once in a pass (the slave reads its database twice), the answer stays.
  // The first pass knows no count to compare with; it judges nothing anyway.
  if (d.writeFailures[db] >= 0 && failures != d.writeFailures[db]) d.writeFailedMs[db] = nowMs;
  bool writeFailed = d.writeFailedMs[db] == nowMs;
  d.writeFailures[db] = failures;
  if (writeFailed && !d.writeOutage[db]) {
    LogError("%s the heartbeat of this server did not reach the database on %s: no row there is "
             "judged until it does",
             step, DbServer(db));
  } else if (!writeFailed && d.writeOutage[db] && HeartbeatWrites[db].lastOk) {
    LogNotice("%s the heartbeat of this server reaches the database on %s again", step,
              DbServer(db));
  }
  if (writeFailed) d.writeOutage[db] = true;
  if (HeartbeatWrites[db].lastOk && !writeFailed) d.writeOutage[db] = false;
  if (!readOk || writeFailed) {
    d.seen.Unreadable(db, nowMs);
    return false;
  }
  d.seen.Read(db, rows, count, nowMs, complete);
  return true;
}

RowSeen SeenOf(const ClustRecord& row, int db, bool held, int64_t nowMs) {
  const Observations& seen = Detector().seen;
  RowSeen s;
  s.status = row.status;
  s.member = row.role_id != kRoleIdMaster && row.role_id != kRoleIdSlave;
  s.held = held;
  if (const RowWatch* w = seen.Find(db, row.hostname.c_str())) {
    s.silentMs = VerdictSilenceMs(*w);
    s.rawSilentMs = w->silentMs;
  }
  int other = db == kMasterDb ? kSlaveDb : kMasterDb;
  const RowWatch* o = seen.ReadAt(other, nowMs) ? seen.Find(other, row.hostname.c_str()) : nullptr;
  if (o != nullptr) {
    s.otherSilentMs = o->silentMs;
    s.otherStatus = o->status;
  }
  return s;
}

GuardRow GuardRowOf(const ClustRecord& row, int db, int64_t nowMs) {
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
