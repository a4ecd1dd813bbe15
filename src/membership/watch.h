// The detector's memory across passes, owned by the daemon and handed to every pass of its
// monitors: what they observed of every row, which outages and one-database writers they reported
// already, what one pass leaves the next to judge by, and the take-over runs they started. Helpers
// the two monitors share, each working on the memory it is handed. Single-threaded.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "base/fixed_text.h"
#include "base/paths.h"
#include "membership/monitor_decision.h"
#include "membership/observation.h"
#include "membership/takeover_queue.h"
#include "store/clust_record.h"
#include "store/cluster_writes.h"
#include "store/maintenance.h"

namespace qor {

// Detected_1 to Detected_4.
constexpr int kDetectedKinds = 4;

struct DetectorMemory {
  Observations seen;
  // The master row's last_writemill and tpl_updatemill (last change of its template tree) as an
  // earlier row of this pass, or the last pass, read them; 0 before any read.
  int64_t MasterLastWriteMill = 0;
  int64_t MasterTplUpdateMill = 0;
  // The slave's own last_writemill in its own database, as the slave's last pass read it.
  int64_t SlaveLastWriteMill = 0;
  int64_t DetectedCount[kDetectedKinds] = {};  // Detected_ lines logged, at index kind - 1
  int64_t writeFailures[kDbCount] = {-1, -1};  // the heartbeat's failed writes at the last pass
  int64_t writeFailedMs[kDbCount] = {-1, -1};  // the pass that last found a write failed
  bool writeOutage[kDbCount] = {};     // reported: this server's heartbeat did not get there
  std::set<std::string> oneDb;         // reported: writes into one database only
  int64_t oneDbReports = 0;            // servers so reported, for the metrics
  std::vector<MaintenanceMark> marks;  // as the last pass read them, for the metrics
  // The take-over script's runs this watcher started, waits for or holds (membership/nodedown.h).
  TakeoverQueue takeovers{kQordownCommand};
};

// Reads db's rows for a monitor: the read, then this watcher's own heartbeat write there in this
// cycle. When either failed, nothing of db is judged in this pass: its silence stops counting,
// and a failed write is reported once per outage. True when db's rows may be judged.
// complete: rows holds every row of db.
// writes: the heartbeat's writes of the own row (NodeState's HeartbeatWrites).
bool ObserveDb(DetectorMemory& d, const OwnRowWrites* writes, Db db, bool readOk,
               ClustRecord* const* rows, int count, int64_t nowMs, bool complete, const char* step);

// The maintenance marks of the databases this pass can reach, read once, when first asked for:
// only a silent row needs them.
class PassMarks {
 public:
  const MaintenanceMark* Of(const char* host);
  const std::vector<MaintenanceMark>& All() {
    Of("");
    return marks_;
  }

 private:
  bool read_ = false;
  std::vector<MaintenanceMark> marks_;
};

// What this watcher observed of row for a verdict judged in db at nowMs (the other database as
// read in the same pass, when it was).
RowSeen SeenOf(const DetectorMemory& d, const ClustRecord& row, Db db, bool held, int64_t nowMs,
               PassMarks& marks);

// The take-over of row skipped for its maintenance mark: logged after the Detected_ line, and
// held until the mark is gone.
void SkipForMaintenance(DetectorMemory& d, const char* step, const ClustRecord& row,
                        PassMarks& marks, int64_t nowMs);
// A take-over held for a maintenance mark, settled: dropped once the server writes again, run once
// the mark is gone (expired, or taken off) while the server is still silent everywhere.
void SettleMaintenance(DetectorMemory& d, const char* step, const ClustRecord& row,
                       const RowSeen& seen, PassMarks& marks, int64_t nowMs);
GuardRow GuardRowOf(const DetectorMemory& d, const ClustRecord& row, Db db, int64_t nowMs);

// The detector's observations, published by the daemon after each pass (written whole, renamed
// over the last) for -explain, which loads them: the monotonic clock is the machine's, so a
// reader extends each silence to its own now.
void PublishObservations(const DetectorMemory& d, const char* dir, const char* path);
bool LoadObservations(DetectorMemory& d, const char* path);

// The one-database report, once per episode: row's server still writes into the other database.
void ReportOneDb(DetectorMemory& d, const char* step, const ClustRecord& row, bool oneDb);
// "Detected_1" to "Detected_4": the word the line of each kind begins with, which the metrics
// name too.
FixedText<16> DetectedWord(int kind);
// The Detected_ line of kind 1 to 4.
void LogDetected(DetectorMemory& d, int kind, const ClustRecord& row, int64_t now);

}  // namespace qor
