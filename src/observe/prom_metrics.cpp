#include "observe/prom_metrics.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "config/qorver.h"
#include "membership/heartbeat.h"
#include "membership/monitor_decision.h"
#include "membership/nodedown.h"
#include "membership/watch.h"
#include "store/cluster_query.h"
#include "store/pools.h"

namespace qor {

namespace {

const char* const kDatabases[2] = {"master", "slave"};

const char* RoleText(int role) {
  return role == kRoleMaster   ? "master"
         : role == kRoleSlave  ? "slave"
         : role == kRoleMember ? "member"
                               : "other";
}

struct Label {
  const char* name;
  const char* value;
};

void Family(std::string& out, const char* name, const char* type, const char* help) {
  out.append("# HELP ").append(name).append(" ").append(help).append("\n# TYPE ");
  out.append(name).append(" ").append(type).append("\n");
}

void Labels(std::string& out, std::initializer_list<Label> labels) {
  if (labels.size() == 0) return;
  char sep = '{';
  for (const Label& l : labels) {
    out.push_back(sep);
    out.append(l.name).append("=\"");
    for (const char* p = l.value; *p; ++p) {
      if (*p == '\\' || *p == '"') {
        out.push_back('\\');
        out.push_back(*p);
      } else if (*p == '\n') {
        out.append("\\n");
      } else {
        out.push_back(*p);
      }
    }
    out.push_back('"');
    sep = ',';
  }
  out.push_back('}');
}

void Sample(std::string& out, const char* name, std::initializer_list<Label> labels,
            int64_t value) {
  FixedText<32> text;
  text.format(" %" PRId64 "\n", value);
  out.append(name);
  Labels(out, labels);
  out.append(text.c_str());
}

void Seconds(std::string& out, const char* name, std::initializer_list<Label> labels,
             double value) {
  // Fifteen digits hold a time since the epoch to the microsecond and a loopback round trip alike.
  FixedText<48> text;
  text.format(" %.15g\n", value);
  out.append(name);
  Labels(out, labels);
  out.append(text.c_str());
}

// The rows to show: every row of the reads from a database that is up, once per database,
// server and host name (a database read twice in a cycle shows in both arrays).
struct ShownRows {
  const ClustRecord* rows[2][2 * Maxcluster];
  int count[2] = {0, 0};
};

void CollectRows(const MetricsView& v, ShownRows& shown) {
  for (const MetricsRows& read : v.reads) {
    if (read.side != 0 && read.side != 1) continue;
    if (!v.db[read.side].up) continue;
    int& n = shown.count[read.side];
    for (int i = 0; i < read.count && i < Maxcluster; ++i) {
      const ClustRecord* r = read.rows[i];
      bool seen = false;
      for (int j = 0; j < n && !seen; ++j) {
        seen = shown.rows[read.side][j]->ipaddress == r->ipaddress.c_str() &&
               shown.rows[read.side][j]->hostname == r->hostname.c_str();
      }
      if (!seen) shown.rows[read.side][n++] = r;
    }
  }
}

// A gauge with one sample per row shown, valued by of(side, row).
template <class F>
void PerRow(std::string& out, const ShownRows& shown, const char* name, const char* help, F&& of) {
  Family(out, name, "gauge", help);
  for (int side = 0; side < 2; ++side) {
    for (int i = 0; i < shown.count[side]; ++i) {
      const ClustRecord& r = *shown.rows[side][i];
      Sample(out, name,
             {{"database", kDatabases[side]},
              {"server", r.ipaddress.c_str()},
              {"hostname", r.hostname.c_str()}},
             of(side, r));
    }
  }
}

void RenderRows(const MetricsView& v, std::string& out) {
  ShownRows shown;
  CollectRows(v, shown);
  Family(out, "qorclustd_rows", "gauge", "Rows of the clusters table by status, as last read.");
  for (int side = 0; side < 2; ++side) {
    if (!v.db[side].up) continue;
    for (int status : {kStatusActive, kStatusInactive, kStatusOld}) {
      int64_t n = 0;
      for (int i = 0; i < shown.count[side]; ++i) n += shown.rows[side][i]->status == status;
      FixedText<32> text;
      text.format("%d", status);
      Sample(out, "qorclustd_rows", {{"database", kDatabases[side]}, {"status", text.c_str()}}, n);
    }
  }
  const int64_t nowSec = v.nowMill / 1000;
  PerRow(out, shown, "qorclustd_row_age_seconds",
         "Seconds since the server's row was last written, as last read.",
         [&](int, const ClustRecord& r) { return nowSec - r.updated_at; });
  PerRow(out, shown, "qorclustd_row_last_change_timestamp_seconds",
         "When this view last saw the server's row change, in seconds since the epoch.",
         [&](int side, const ClustRecord& r) { return RowChangedAtSeconds(v, side, r); });
  // The detector's own verdict beside the age: its status write renews updated_at, so a server
  // taken for dead shows a young row again; the status keeps saying what became of it.
  PerRow(out, shown, "qorclustd_row_status", "The row's status: 100 active, 200 inactive, 300 old.",
         [](int, const ClustRecord& r) { return static_cast<int64_t>(r.status); });
  PerRow(out, shown, "qorclustd_row_template_syncstate",
         "The row's template state: 0 never pulled, 100 in step, 300 behind.",
         [](int, const ClustRecord& r) { return static_cast<int64_t>(r.tpl_syncstate); });
}

int64_t FailedTakeovers(const TakeoverTally& t) {
  int64_t n = t.killed;
  for (int status = 1; status < 256; ++status) n += t.endedWith[status];
  return n;
}

void RenderWatch(const MetricsView& v, std::string& out) {
  Family(out, "qorclustd_detections_total", "counter",
         "Servers found silent, by the kind of the Detected_ line logged.");
  int first = v.role == kRoleMaster ? 1 : 2, last = v.role == kRoleMaster ? 1 : kDetectedKinds;
  for (int kind = first; kind <= last; ++kind) {
    Sample(out, "qorclustd_detections_total", {{"kind", DetectedWord(kind).c_str()}},
           v.detected[kind - 1]);
  }
  const TakeoverTally& t = *v.takeovers;
  Family(out, "qorclustd_takeovers_started_total", "counter", "Take-over scripts started.");
  Sample(out, "qorclustd_takeovers_started_total", {}, t.started);
  // A counter that appears at 1 shows Prometheus no increase: the failures are counted in a
  // series of their own that exists from the first cycle on.
  Family(out, "qorclustd_takeovers_failed_total", "counter",
         "Take-over scripts that ended with a status other than 0 or were killed.");
  Sample(out, "qorclustd_takeovers_failed_total", {}, FailedTakeovers(t));
  Family(out, "qorclustd_takeovers_ended_total", "counter",
         "Take-over scripts ended, by exit status (killed: none reported).");
  for (int status = 0; status < 256; ++status) {
    if (status != 0 && t.endedWith[status] == 0) continue;
    FixedText<32> text;
    text.format("%d", status);
    Sample(out, "qorclustd_takeovers_ended_total", {{"status", text.c_str()}}, t.endedWith[status]);
  }
  if (t.killed > 0) {
    Sample(out, "qorclustd_takeovers_ended_total", {{"status", "killed"}}, t.killed);
  }
  Family(out, "qorclustd_takeover_running_seconds", "gauge",
         "How long the take-over script in progress has run; 0 when none runs.");
  Seconds(out, "qorclustd_takeover_running_seconds", {}, v.takeoverRunningMs / 1e3);
  Family(out, "qorclustd_takeovers_waiting", "gauge", "Take-over scripts queued behind it.");
  Sample(out, "qorclustd_takeovers_waiting", {}, static_cast<int64_t>(v.takeoversWaiting));
  Family(out, "qorclustd_takeovers_held", "gauge",
         "Take-overs held: this server looked cut off, or a mass silence awaits confirmation.");
  Sample(out, "qorclustd_takeovers_held", {}, static_cast<int64_t>(v.takeoversHeld));
  Family(out, "qorclustd_maintenance", "gauge",
         "Servers marked for maintenance: when the mark expires, in seconds since the epoch.");
  if (v.marks != nullptr) {
    for (const MaintenanceMark& m : *v.marks) {
      Sample(out, "qorclustd_maintenance",
             {{"hostname", m.hostname.c_str()}, {"reason", m.reason.c_str()}}, m.until);
    }
  }
  Family(out, "qorclustd_one_database_writers_total", "counter",
         "Servers found silent in one database that still wrote into the other: not taken over.");
  Sample(out, "qorclustd_one_database_writers_total", {}, v.oneDbReports);
}

void RenderPull(const MetricsView& v, std::string& out) {
  Family(out, "qorclustd_template_pull_last_timestamp_seconds", "gauge",
         "When the last template pull began, in seconds since the epoch; 0 before the first.");
  Seconds(out, "qorclustd_template_pull_last_timestamp_seconds", {}, v.pull.startMill / 1e3);
  Family(out, "qorclustd_template_pull_success", "gauge",
         "1 when rsync ended well for every tree of the last pull.");
  Sample(out, "qorclustd_template_pull_success", {}, v.pull.ok ? 1 : 0);
}

// One log line per kind of failure for the life of the process: the file is rewritten every cycle.
void ReportOnce(bool& reported, const char* what, const char* path) {
  if (reported) return;
  reported = true;
  LogError("metrics file %s: %s failed: %s", path, what, std::strerror(errno));
}

bool WriteAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// FNV-1a, over the values in the order given.
struct Digest {
  uint64_t h = 14695981039346656037ull;
  void add(int64_t x) {
    for (int i = 0; i < 8; ++i, x >>= 8) h = (h ^ static_cast<uint8_t>(x)) * 1099511628211ull;
  }
  void add(const char* s) {
    for (; *s; ++s) h = (h ^ static_cast<uint8_t>(*s)) * 1099511628211ull;
    add(int64_t{0});
  }
};

bool Silent(const MetricsView& v, int side, const ClustRecord& r) {
  return v.nowMill / 1000 - RowChangedAtSeconds(v, side, r) > kSilentSeconds;
}

}  // namespace

int64_t RowChangedAtSeconds(const MetricsView& v, int side, const ClustRecord& r) {
  const RowWatch* w = v.seen != nullptr ? v.seen->Find(kDbs[side], r.hostname.c_str()) : nullptr;
  if (w == nullptr) return r.updated_at;
  // The silence this watcher observed, up to its last read, and the time since that read.
  return (v.nowMill - w->silentMs - (v.monoMill - w->observedMs)) / 1000;
}

uint64_t AlertDigest(const MetricsView& v) {
  Digest d;
  d.add(v.role);
  d.add(v.startMill);
  for (const MetricsView::Db& db : v.db) {
    d.add(db.up);
    d.add(db.writes.lastOk);
  }
  for (const MetricsRows& read : v.reads) {
    if (read.side != 0 && read.side != 1) continue;
    if (!v.db[read.side].up) continue;
    for (int i = 0; i < read.count && i < Maxcluster; ++i) {
      const ClustRecord& r = *read.rows[i];
      d.add(r.ipaddress.c_str());
      d.add(r.hostname.c_str());
      d.add(r.status);
      d.add(r.tpl_syncstate);
      d.add(Silent(v, read.side, r));
    }
  }
  if (v.detected != nullptr) {
    for (int kind = 0; kind < kDetectedKinds; ++kind) d.add(v.detected[kind]);
  }
  if (v.marks != nullptr) {
    for (const MaintenanceMark& m : *v.marks) {
      d.add(m.hostname.c_str());
      d.add(m.until);
    }
  }
  if (v.takeovers != nullptr) {
    d.add(v.takeovers->started);
    d.add(v.takeovers->endedWith[0]);
    d.add(FailedTakeovers(*v.takeovers));
  }
  d.add(v.takeoverRunningMs > 0);
  d.add(v.takeoverRunningMs > kTakeoverReportMs);
  d.add(static_cast<int64_t>(v.takeoversWaiting));
  d.add(v.pull.startMill);
  d.add(v.pull.ok);
  return d.h;
}

bool MetricsDue(const MetricsView& v, const MetricsPace& last) {
  int64_t since = v.nowMill - last.writtenMill;
  return last.writtenMill < 0 || since < 0 || since >= kMetricsRefreshSeconds * 1000 ||
         AlertDigest(v) != last.digest;
}

MetricsView CycleView(const NodeState& n, const DetectorMemory& d, const Clocks& now,
                      int64_t cycleMicros, int64_t cycles) {
  MetricsView v;
  v.role = ClustRole;
  v.version = n.Clust.qorver.c_str();
  v.address = CurrentSvr.c_str();
  v.nowMill = now.wallMill;
  v.cycleMicros = cycleMicros;
  v.cycles = cycles;
  const char* addresses[2] = {cnf.clustmaster.c_str(), cnf.clustslave.c_str()};
  QzPool* pools[2] = {mpool, spool};
  for (Db db : kDbs) {
    const int side = Index(db);
    v.db[side].address = addresses[side];
    v.db[side].up = pools[side] != nullptr && DbAnswers(db);
    v.db[side].writes = n.HeartbeatWrites[side];
  }
  v.reads[0] = {n.ClustsOnMaster.entries(), n.mactinfo.count, n.mactinfo.side};
  v.reads[1] = {n.ClustsOnSlave.entries(), n.sactinfo.count, n.sactinfo.side};
  v.detected = d.DetectedCount;
  const TakeoverQueue& runs = d.takeovers;
  v.takeovers = &runs.tally();
  if (runs.running()) v.takeoverRunningMs = now.monoMs - runs.running()->startedMs;
  v.takeoversWaiting = runs.waiting();
  v.takeoversHeld = runs.held().size();
  if (ClustRole == kRoleMaster || ClustRole == kRoleSlave) {
    v.seen = &d.seen;
    v.monoMill = now.monoMs;
    v.oneDbReports = d.oneDbReports;
    v.marks = &d.marks;
  }
  return v;
}

void RenderMetrics(const MetricsView& v, std::string& out) {
  Family(out, "qorclustd_info", "gauge", "The daemon's role, version and own address.");
  Sample(out, "qorclustd_info",
         {{"role", RoleText(v.role)}, {"version", v.version}, {"address", v.address}}, 1);
  Family(out, "qorclustd_start_time_seconds", "gauge",
         "When this daemon ran its first cycle, in seconds since the epoch.");
  Seconds(out, "qorclustd_start_time_seconds", {}, v.startMill / 1e3);
  Family(out, "qorclustd_last_cycle_timestamp_seconds", "gauge",
         "When this file was written, in seconds since the epoch.");
  Seconds(out, "qorclustd_last_cycle_timestamp_seconds", {}, v.nowMill / 1e3);
  Family(out, "qorclustd_cycle_duration_seconds", "gauge", "Wall time of the last cycle.");
  Seconds(out, "qorclustd_cycle_duration_seconds", {}, v.cycleMicros / 1e6);
  Family(out, "qorclustd_cycles_total", "counter", "Cycles run by this process.");
  Sample(out, "qorclustd_cycles_total", {}, v.cycles);
  Family(out, "qorclustd_database_up", "gauge",
         "1 when the database answered this daemon in its last cycle.");
  for (int side = 0; side < 2; ++side) {
    Sample(out, "qorclustd_database_up",
           {{"database", kDatabases[side]}, {"address", v.db[side].address}},
           v.db[side].up ? 1 : 0);
  }
  Family(out, "qorclustd_heartbeat_write_success", "gauge",
         "1 when the database accepted the last write of this server's own row.");
  for (int side = 0; side < 2; ++side) {
    Sample(out, "qorclustd_heartbeat_write_success", {{"database", kDatabases[side]}},
           v.db[side].writes.lastOk ? 1 : 0);
  }
  Family(out, "qorclustd_heartbeat_write_duration_seconds", "gauge",
         "Time of the last write of this server's own row, taking the connection included.");
  for (int side = 0; side < 2; ++side) {
    Seconds(out, "qorclustd_heartbeat_write_duration_seconds", {{"database", kDatabases[side]}},
            v.db[side].writes.lastMicros / 1e6);
  }
  Family(out, "qorclustd_heartbeat_writes_total", "counter",
         "Writes of this server's own row, by result.");
  for (int side = 0; side < 2; ++side) {
    Sample(out, "qorclustd_heartbeat_writes_total",
           {{"database", kDatabases[side]}, {"result", "ok"}}, v.db[side].writes.ok);
    Sample(out, "qorclustd_heartbeat_writes_total",
           {{"database", kDatabases[side]}, {"result", "failed"}}, v.db[side].writes.failed);
  }
  Family(out, "qorclustd_slow_work_running_seconds", "gauge",
         "How long the slow pass (pulls, profile syncs, clean-up, sweep) runs; 0 when none runs.");
  Seconds(out, "qorclustd_slow_work_running_seconds", {}, v.slowWorkMs / 1e3);
  if (v.role == kRoleMaster || v.role == kRoleSlave) {
    RenderRows(v, out);
    RenderWatch(v, out);
  }
  if (v.role == kRoleSlave || v.role == kRoleMember) RenderPull(v, out);
}

void PublishMetrics(const MetricsView& v, const char* dir, MetricsFile& file) {
  if (!MetricsDue(v, file.last)) return;
  std::string& text = file.text;
  text.clear();
  RenderMetrics(v, text);
  FixedText<512> tmp, path;
  if (!tmp.format("%s/qorclustd.prom.tmp", dir) || !path.format("%s/qorclustd.prom", dir)) return;
  int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) {
    if (errno != ENOENT) ReportOnce(file.openFailed, "open", tmp.c_str());
    return;
  }
  bool written = WriteAll(fd, text);
  if (!written) ReportOnce(file.writeFailed, "write", tmp.c_str());
  if (close(fd) != 0 && written) {
    written = false;
    ReportOnce(file.writeFailed, "write", tmp.c_str());
  }
  if (!written) {
    unlink(tmp.c_str());
    return;
  }
  if (rename(tmp.c_str(), path.c_str()) != 0) {
    ReportOnce(file.renameFailed, "rename", path.c_str());
    unlink(tmp.c_str());
    return;
  }
  file.last = {AlertDigest(v), v.nowMill};
}

void RemoveMetrics(const char* dir) {
  FixedText<512> path;
  for (const char* name : {"qorclustd.prom.tmp", "qorclustd.prom"}) {
    if (path.format("%s/%s", dir, name)) unlink(path.c_str());
  }
}

}  // namespace qor
