// The daemon's metrics for node_exporter's textfile collector: after each cycle, what the cycle
// already knows (its own writes, the rows it read, the monitors' and take-overs' counts) goes in
// Prometheus' text format to qorclustd.prom in kNodeExporterDir (base/paths.h), written as a
// temporary file and renamed over the old one, so that the exporter never reads half a file.
// Nothing here runs a statement or a command. Single-threaded; the rest of the program knows
// nothing of Prometheus.
//
// Reachable: a database is up when its pool exists after the cycle's reconnect and no outage of
// it is open at the cycle's end (store/pools.h DbAnswers), that is, it answered this process's
// last call on it. Only the rows of a database that is up are shown: those of one that did not
// answer are an earlier cycle's.
//
// A missing directory (no exporter installed) means no file, silently, and is looked for again
// each cycle by the open itself. Any other failure (read-only, full, not ours) leaves the old
// file as it was and is logged once per kind for the life of the process, never per cycle.
//
// Pace: the file is rewritten when something an alert reads has changed (a database, a write's
// result, a row's status or template state, a row going silent, a count, a take-over starting,
// ending or running long, a pull), and otherwise every kMetricsRefreshSeconds, which is what
// qorclustd_last_cycle_timestamp_seconds then says. Prometheus scrapes every 15 s or more, so
// nothing is lost by the slower pace, and a steady cycle renders and writes nothing.
//
// Cost of a write: one render into a buffer kept from cycle to cycle, at most 2 x Maxcluster rows,
// then one open, write, close and rename; no fsync, since a file lost to a crash is rewritten at
// the next write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "membership/monitor.h"
#include "membership/observation.h"
#include "membership/takeover_queue.h"
#include "replication/replication.h"
#include "store/clust_record.h"
#include "store/cluster_writes.h"
#include "store/maintenance.h"

namespace qor {

// Rows of one read: count records of rows, from the database of side (0 the master's, 1 the
// slave's, -1 none).
struct MetricsRows {
  const ClustRecord* const* rows = nullptr;
  int count = 0;
  int side = -1;
};

// Everything the file says, as gathered at the end of a cycle.
struct MetricsView {
  int role = 0;  // ClustRole
  const char* version = "";
  const char* address = "";  // this server's own
  int64_t nowMill = 0;       // wall clock, the rows' updated_at's clock
  int64_t startMill = 0;     // when this process ran its first cycle
  int64_t cycleMicros = 0;
  int64_t cycles = 0;
  struct Db {
    const char* address = "";
    bool up = false;
    OwnRowWrites writes;
  } db[2];
  MetricsRows reads[2];
  const int64_t* detected = nullptr;  // kDetectedKinds counts
  const TakeoverTally* takeovers = nullptr;
  int64_t takeoverRunningMs = 0;  // 0 when none runs
  size_t takeoversWaiting = 0;
  TemplatePull pull;
  // What the detector observed of the rows, at monoMill of its clock; nullptr on a member.
  const Observations* seen = nullptr;
  int64_t monoMill = 0;
  int64_t oneDbReports = 0;  // servers reported as writing into one database only
  size_t takeoversHeld = 0;
  const std::vector<MaintenanceMark>* marks = nullptr;  // on the master and the slave
  int64_t slowWorkMs = 0;  // how long the slow pass beside the cycle runs; 0 when none runs
};

constexpr int64_t kMetricsRefreshSeconds = 30;

// When the view saw the row last change, in seconds since the epoch: what the silent-server alert
// judges. On the master and the slave, the detector's own observation (its status writes and marks
// are no change); elsewhere, or for a row it has not observed, the row's updated_at.
int64_t RowChangedAtSeconds(const MetricsView& v, int side, const ClustRecord& r);

// What the last write of the file was made of.
struct MetricsPace {
  uint64_t digest = 0;
  int64_t writtenMill = -1;  // never written
};
// The digest of what the alerts read in v (see Pace above).
uint64_t AlertDigest(const MetricsView& v);
// Whether v must be written now, after the write described by last.
bool MetricsDue(const MetricsView& v, const MetricsPace& last);

// The view of this process at now, the end of a cycle that took cycleMicros, the cycles-th one;
// n: the rows it read last; d: what its monitors observed. The daemon adds its start, its slow
// pass and its last pull.
MetricsView CycleView(const NodeState& n, const DetectorMemory& d, const Clocks& now,
                      int64_t cycleMicros, int64_t cycles);
// Appends the view in the text format to out.
void RenderMetrics(const MetricsView& v, std::string& out);
// What the daemon keeps between writes of the file: room for its text, the failures logged already
// (once each until a write succeeds) and what the last write held.
struct MetricsFile {
  std::string text;
  bool openFailed = false, writeFailed = false, renameFailed = false;
  MetricsPace last;
};
// When MetricsDue after file's last write, renders the view and replaces dir/qorclustd.prom with
// it; see the top of this file.
void PublishMetrics(const MetricsView& v, const char* dir, MetricsFile& file);
// Removes dir/qorclustd.prom at a deliberate stop: a file left behind would say the daemon runs.
void RemoveMetrics(const char* dir);

}  // namespace qor
