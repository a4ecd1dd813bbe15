// What the daemon shows of itself: the metrics file and its pace, and the status line.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/qorconf.h"
#include "observe/prom_metrics.h"
#include "observe/systemd_notify.h"

namespace qor {
namespace {

ClustRecord Row(const char* host, const char* address, int status, int64_t updatedAt) {
  return {.hostname = host,
          .ipaddress = address,
          .status = status,
          .tpl_syncstate = kTplSynced,
          .updated_at = updatedAt};
}

// States of a daemon at the end of a cycle, and lines its file must and must not hold.
TEST(PromMetrics, RendersWhatTheRoleKnows) {
  const int64_t now = 1700000040;
  ClustRecord read[] = {Row("m", "10.0.0.1", 100, now - 1), Row("s", "10.0.0.2", 200, now - 30),
                        Row("a", "10.0.0.3", 300, now - 20), Row("b", "10.0.0.4", 100, now - 2),
                        Row("we\"ird\\host\n", "10.0.0.5", 100, now)};
  const ClustRecord* all[] = {&read[0], &read[1], &read[2], &read[3]};
  const ClustRecord *again[] = {&read[2]}, *odd[] = {&read[4]};
  int64_t detected[kDetectedKinds] = {3, 0, 0, 0};
  TakeoverTally tally{.started = 4, .endedWith = {2}, .killed = 1};
  MetricsView member{
      .role = kRoleMember,
      .version = "4.1",
      .address = "10.0.0.1",
      .nowMill = now * 1000 + 500,
      .cycleMicros = 1250,
      .db = {{"10.0.0.1", true, {true, 1250, 7, 1}}, {"10.0.0.2", false, {false, 0, 0, 2}}},
      .reads = {},
      .detected = detected,
      .takeovers = &tally,
      .pull = {now * 1000 - 60500, true}};
  MetricsView master = member, escaped = member;
  master.role = kRoleMaster;
  master.pull = {};
  master.reads[0] = {all, 4, 0};
  master.reads[1] = {again, 1, 0};
  master.takeoverRunningMs = 1500;
  escaped.role = kRoleSlave;
  escaped.pull = {};
  escaped.version = "4.1\"beta\\";
  escaped.reads[0] = {odd, 1, 0};
  escaped.reads[1] = {all, 4, 1};  // from a database that did not answer: an older cycle's
  const TakeoverTally none;
  escaped.takeovers = &none;
  const struct {
    const char* name;
    MetricsView v;
    std::vector<std::string> lines, absent;
  } cases[] = {
      {.name = "member: writes and its pull, no rows, no detections",
       .v = member,
       .lines = {"qorclustd_info{role=\"member\",version=\"4.1\",address=\"10.0.0.1\"} 1",
                 "qorclustd_last_cycle_timestamp_seconds 1700000040.5",
                 "qorclustd_cycle_duration_seconds 0.00125",
                 "qorclustd_database_up{database=\"master\",address=\"10.0.0.1\"} 1",
                 "qorclustd_database_up{database=\"slave\",address=\"10.0.0.2\"} 0",
                 "qorclustd_heartbeat_write_success{database=\"slave\"} 0",
                 "qorclustd_heartbeat_write_duration_seconds{database=\"master\"} 0.00125",
                 "qorclustd_heartbeat_writes_total{database=\"master\",result=\"failed\"} 1",
                 "qorclustd_template_pull_last_timestamp_seconds 1699999979.5",
                 "qorclustd_template_pull_success 1"},
       .absent = {"qorclustd_rows", "qorclustd_detections_total", "qorclustd_takeovers"}},
      {.name = "master: its rows by status, once each, and its take-overs",
       .v = master,
       .lines =
           {"qorclustd_rows{database=\"master\",status=\"100\"} 2",
            "qorclustd_rows{database=\"master\",status=\"200\"} 1",
            "qorclustd_rows{database=\"master\",status=\"300\"} 1",
            "qorclustd_row_age_seconds{database=\"master\",server=\"10.0.0.2\",hostname=\"s\"} "
            "30",
            "qorclustd_row_template_syncstate{database=\"master\",server=\"10.0.0.3\","
            "hostname=\"a\"} 100",
            "qorclustd_row_status{database=\"master\",server=\"10.0.0.2\",hostname=\"s\"} 200",
            "qorclustd_detections_total{kind=\"Detected_1\"} 3",
            "qorclustd_takeovers_started_total 4",
            "qorclustd_takeovers_ended_total{status=\"0\"} 2",
            "qorclustd_takeovers_ended_total{status=\"killed\"} 1",
            "qorclustd_takeovers_failed_total 1",
            "qorclustd_row_last_change_timestamp_seconds{database=\"master\",server=\"10.0.0.2\","
            "hostname=\"s\"} 1700000010",
            "qorclustd_takeover_running_seconds 1.5", "qorclustd_takeovers_waiting 0"},
       .absent = {"qorclustd_rows{database=\"slave\"",
                  "qorclustd_detections_total{kind=\"Detected_2", "qorclustd_template_pull"}},
      {.name = "slave: label values escaped, its Detected_ kinds, no rows of a silent database",
       .v = escaped,
       .lines =
           {"qorclustd_info{role=\"slave\",version=\"4.1\\\"beta\\\\\",address=\"10.0.0.1\"} 1",
            "qorclustd_row_age_seconds{database=\"master\",server=\"10.0.0.5\","
            "hostname=\"we\\\"ird\\\\host\\n\"} 0",
            "qorclustd_detections_total{kind=\"Detected_4\"} 0",
            "qorclustd_takeovers_failed_total 0", "qorclustd_takeovers_ended_total{status=\"0\"} 0",
            "qorclustd_template_pull_success 0"},
       .absent = {"kind=\"Detected_1\"", "database=\"slave\",status", "hostname=\"s\""}},
  };
  for (const auto& c : cases) {
    std::string text;
    RenderMetrics(c.v, text);
    for (const std::string& line : c.lines) {
      EXPECT_NE(text.find("\n" + line + "\n"), std::string::npos) << c.name << ": " << line;
    }
    for (const std::string& part : c.absent) {
      EXPECT_EQ(text.find(part), std::string::npos) << c.name << ": " << part;
    }
  }
}

// The file is rewritten when something an alert reads changes, and otherwise every 30 s.
TEST(PromMetrics, WritesOnChangeOtherwiseAtItsPace) {
  const int64_t now = 1700000040;
  int64_t detected[kDetectedKinds] = {};
  struct {
    const char* name;
    int64_t later, renewed;  // seconds after the last write; the row written that much later
    int status, killed;      // the row's status and the take-overs killed by then
    int64_t runningMs;       // how long the take-over has run by then
    bool due;
  } cases[] = {
      {"a cycle later, the row renewed", 2, 2, 100, 0, 1000, false},
      {"29 s later, the row renewed", 29, 29, 100, 0, 1000, false},
      {"30 s later", 30, 30, 100, 0, 1000, true},
      {"a row silent 15 s", 14, 0, 100, 0, 1000, false},
      {"a row silent 16 s", 15, 0, 100, 0, 1000, true},
      {"a row marked", 2, 2, 200, 0, 1000, true},
      {"a take-over killed", 2, 2, 100, 1, 1000, true},
      {"a take-over past 5 minutes", 2, 2, 100, 0, 300001, true},
  };
  for (const auto& c : cases) {
    ClustRecord row = Row("m", "10.0.0.1", 100, now - 1);
    const ClustRecord* read[] = {&row};
    TakeoverTally tally;
    MetricsView v{.role = kRoleMaster,
                  .nowMill = now * 1000,
                  .db = {{"10.0.0.1", true, {}}, {"10.0.0.2", true, {}}},
                  .reads = {{read, 1, 0}},
                  .detected = detected,
                  .takeovers = &tally,
                  .takeoverRunningMs = 1000,
                  .pull = {}};
    const MetricsPace written{AlertDigest(v), v.nowMill};
    v.nowMill += c.later * 1000;
    v.cycleMicros += 999;
    v.takeoverRunningMs = c.runningMs;
    row.updated_at += c.renewed;
    row.status = c.status;
    tally.killed = c.killed;
    EXPECT_EQ(MetricsDue(v, written), c.due) << c.name;
  }
}

TEST(SystemdStatus, OneLineOfRoleRowsCycleAndTakeover) {
  struct {
    DaemonStatus status;
    std::string line;
  } rows[] = {
      {{.role = kRoleMember, .servers = 4, .cycleMs = 40},
       "member: 4 servers in the table, cycle 0.04 s"},
      {{.role = kRoleSlave, .servers = 1, .cycleMs = 10050},
       "slave: 1 server in the table, cycle 10.05 s"},
      {{.role = kRoleMaster,
        .servers = 12,
        .cycleMs = 1234,
        .takeoverHost = "web3",
        .takeoverAddress = "10.0.0.13",
        .takeoverMs = 12999,
        .takeoversWaiting = 2,
        .slowWhat = "pull of qortemplates",
        .slowMs = 140500},
       "master: 12 servers in the table, cycle 1.23 s, take-over of web3(10.0.0.13) running 12 s, "
       "2 more waiting, slow work: pull of qortemplates running 140 s"},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(FormatDaemonStatus(r.status).c_str(), r.line);
  }
}

}  // namespace
}  // namespace qor
