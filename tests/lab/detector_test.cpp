// A running cluster in which members die in the situations a production cluster meets every year,
// in turn on one lab: in a time zone whose daylight saving time is in force today; with its
// template copy behind the master's; while the master's database server is down and its host
// up; while the master's database stalls for a few seconds at a time; with daemons' clocks
// skewed and stepped. Each dead member is found in bounded time, taken over exactly once in the
// whole cluster, and no live server is taken for dead, a database hung or refusing writes and
// clocks that lie included. The master's metrics, read through a node exporter, show the first one.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

class LabDetector : public LabCluster {
 protected:
  LabDetector() : LabCluster(4, DaylightSavingZone()) {}

  // Kills member i's daemon; the second of its death.
  int64_t Kill(int i) {
    EXPECT_EQ(lab_.Run(i, {"-stop"}).status, 0) << lab_.Info(i).name;
    return NowMill() / 1000;
  }
  // Seconds from death until member i's row is 200 in database db, or -1 past limit seconds.
  int64_t FoundAfter(int i, int db, int64_t death, int limit) {
    bool found = WaitFor(limit, [&] { return RowOf(lab_, db, lab_.Info(i).name).status == 200; });
    return found ? NowMill() / 1000 - death : -1;
  }
  // The take-over starts once the pass has written its statuses: host's runs reach n soon.
  bool Started(int host, int n) {
    return WaitFor(5, [&] { return Takeovers(lab_, host) == n; });
  }
  // The master's metrics as the node exporter in its host publishes them, piped into then; and
  // one sample's value (-1 when absent).
  RunResult Scrape(const std::string& then = "cat") {
    return lab_.Shell(kMaster, "curl -sf --max-time 5 http://" + lab_.Info(kMaster).address +
                                   ":9100/metrics | " + then);
  }
  static double Value(const std::string& text, const std::string& series) {
    size_t at = text.find("\n" + series + " ");
    return at == std::string::npos ? -1 : std::stod(text.substr(at + series.size() + 2));
  }
  // Starts member i's daemon again; true once every row is active in both databases.
  bool Revive(int i) {
    return lab_.StartDaemon(i, false).status == 0 &&
           WaitFor(15, [&] { return AllActive(lab_, kMaster) && AllActive(lab_, kSlave); });
  }
};

TEST_F(LabDetector, DeadMembersAreFoundOnceAndLiveOnesNever) {
  ASSERT_TRUE(StartAndJoin());
  const LabHost &m1 = lab_.Info(kMember1), &m2 = lab_.Info(kMember2);
  const std::set<std::string> dead = {m1.name, m2.name};
  const std::string exporter =
      "setsid prometheus-node-exporter --collector.disable-defaults --collector.textfile "
      "--collector.textfile.directory=/var/lib/prometheus/node-exporter --web.listen-address=" +
      lab_.Info(kMaster).address + ":9100 </dev/null >/dev/null 2>&1 &";
  ASSERT_EQ(lab_.Shell(kMaster, exporter).status, 0);
  const std::string detected = "qorclustd_detections_total{kind=\"Detected_1\"}";
  double before = -1;
  ASSERT_TRUE(WaitFor(10, [&] { return (before = Value(Scrape().out, detected)) >= 0; }));

  // Daylight saving time in force: the row's time is read in the zone's own rules, so the
  // member is found 15 s after its last write (up to a cycle before the kill) and the line names
  // the second it last wrote.
  int64_t death = Kill(kMember2);
  // The member going silent is news for the alerts: the file is written anew, by rename.
  const char* replaced =
      "f=/var/lib/prometheus/node-exporter/qorclustd.prom; i=$(stat -c %i $f); for n in $(seq 40);"
      " do sleep 1; [ \"$(stat -c %i $f)\" != \"$i\" ] && exit 0; done; exit 1";
  EXPECT_EQ(lab_.Shell(kMaster, replaced, 45).status, 0)
      << "a new file replaces the last, never rewrites it in place";
  // The exporter sorts the labels. The cycle that finds the member shows its row as read, the
  // last to: the status written then renews the row's time.
  const std::string age = "qorclustd_row_age_seconds{database=\"master\",hostname=\"" + m2.name +
                          "\",server=\"" + m2.address + "\"}";
  EXPECT_TRUE(WaitFor(30, [&] { return Value(Scrape().out, age) > 15; }));
  int64_t after = FoundAfter(kMember2, kMaster, death, 30);
  EXPECT_TRUE(after >= 12 && after <= 25) << after << " s in " << DaylightSavingZone();
  EXPECT_TRUE(WaitFor(5, [&] { return Value(Scrape().out, detected) == before + 1; }));
  EXPECT_EQ(Scrape("promtool check metrics").status, 0);
  const std::string line = "Detected_1 that " + m2.name + "(" + m2.address + ")<";
  for (const std::string& l : lab_.Syslog(kMaster)) {
    if (l.rfind(line, 0) != 0) continue;
    EXPECT_NEAR(std::stoll(l.substr(line.size())), death, 3) << l;
    break;
  }
  EXPECT_TRUE(Started(kMaster, 1));
  ASSERT_TRUE(Revive(kMember2));
  EXPECT_EQ(Value(Scrape().out, detected), before + 1);

  // Marked for maintenance and stopped: -explain names it and its silence while it is judged,
  // its row is marked when found, nobody takes it over; started again, it is active as before.
  const std::vector<std::string> mark = {"-maintenance", m2.name, "on", "30", "kernel", "update"};
  ASSERT_EQ(lab_.Run(kSlave, mark).status, 0);
  death = Kill(kMember2);
  std::this_thread::sleep_for(std::chrono::seconds(9));
  const std::string explained = lab_.Run(kMaster, {"-explain"}).out;
  size_t at = explained.find(m2.name + "(" + m2.address + ") status 100, silent ");
  ASSERT_NE(at, std::string::npos) << explained;
  double silent = std::stod(explained.substr(explained.find("silent ", at) + 7));
  EXPECT_TRUE(silent >= 5 && silent <= 12) << explained;
  EXPECT_GT(FoundAfter(kMember2, kMaster, death, 30), 0);
  EXPECT_TRUE(WaitFor(
      5, [&] { return Logged(lab_, kMaster, "monitoronmaster(10) take-over of " + m2.name); }));
  EXPECT_TRUE(Started(kMaster, 1)) << "no take-over of a server marked for maintenance";
  ASSERT_TRUE(Revive(kMember2));
  EXPECT_EQ(lab_.Run(kMaster, {"-maintenance", m2.name, "off"}).status, 0);

  // Its template copy behind: marked once, the row still goes silent.
  death = Kill(kMember1);
  ASSERT_GT(MarkTemplates(lab_), 0);
  EXPECT_TRUE(WaitFor(25, [&] {
    return lab_.Sql(kMaster, "select tpl_syncstate from clusters where hostname='" + m1.name +
                                 "';") == "300\n";
  }));
  after = FoundAfter(kMember1, kSlave, death, 30);
  EXPECT_TRUE(after >= 12 && after <= 25) << after << " s";
  EXPECT_TRUE(Started(kMaster, 2));
  ASSERT_TRUE(Revive(kMember1));

  // The master's database server down, its host up: the slave keeps the watch from its own
  // database; when the master's database is back, both agree within 20 s and nobody runs the
  // take-over a second time.
  ASSERT_EQ(lab_.StopDatabase(kMaster), "");
  death = Kill(kMember2);
  after = FoundAfter(kMember2, kSlave, death, 35);
  EXPECT_TRUE(after > 0 && after <= 30) << after << " s";
  EXPECT_TRUE(Started(kSlave, 1));
  ASSERT_EQ(lab_.StartDatabase(kMaster), "");
  auto agreed = [&](int db) {
    for (const ClusterRow& r : ReadRows(lab_, db)) {
      if (r.status != (r.hostname == m2.name ? 200 : 100)) return false;
    }
    return ReadRows(lab_, db).size() == 4;
  };
  EXPECT_TRUE(WaitFor(20, [&] { return agreed(kMaster) && agreed(kSlave); }));
  std::this_thread::sleep_for(std::chrono::seconds(10));
  EXPECT_EQ(ClusterTakeovers(lab_), 3);
  EXPECT_EQ(DetectedOtherThan(lab_, dead), 0);
  ASSERT_TRUE(Revive(kMember2));

  // The master's database stalls 3 s in every 10: detection comes later, never not at all.
  std::atomic<bool> stalling{true};
  std::thread stalls([&] {
    for (int i = 0; i < 12 && stalling; ++i) {
      lab_.StallDatabase(kMaster, true);
      std::this_thread::sleep_for(std::chrono::seconds(3));
      lab_.StallDatabase(kMaster, false);
      std::this_thread::sleep_for(std::chrono::seconds(7));
    }
  });
  death = Kill(kMember1);
  after = FoundAfter(kMember1, kMaster, death, 45);
  stalling = false;
  stalls.join();
  EXPECT_TRUE(after > 0 && after <= 40) << after << " s";
  EXPECT_TRUE(WaitFor(10, [&] { return ClusterTakeovers(lab_) == 4; }));
  ASSERT_TRUE(Revive(kMember1));

  // The master's database hung for a minute: every daemon's cycle goes on within its bound on
  // database waits, so the slave's database keeps every heartbeat; once the master's database
  // answers again, nobody is taken for dead, and both databases are whole within a few cycles.
  std::string pid;
  std::ifstream(lab_.dir() + "/" + lab_.Info(kMaster).name + "/db/mysqld.pid") >> pid;
  ASSERT_EQ(lab_.Shell(kMaster, "kill -STOP " + pid).status, 0);  // its own pid namespace's
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (int i = 0; i < 300 && std::chrono::steady_clock::now() < end; ++i) {
    for (const ClusterRow& r : ReadRows(lab_, kSlave)) {
      EXPECT_TRUE(dead.count(r.hostname) > 0 || r.now - r.updated_at <= 9) << r.hostname;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  ASSERT_EQ(lab_.Shell(kMaster, "kill -CONT " + pid).status, 0);
  EXPECT_TRUE(WaitFor(10, [&] { return AllActive(lab_, kMaster) && AllActive(lab_, kSlave); }));

  // The master's database refusing every write for a minute (read only): its rows go stale
  // while it answers, and nobody is taken for dead.
  lab_.Sql(kMaster, "set global read_only = 1;");
  std::this_thread::sleep_for(std::chrono::seconds(60));
  lab_.Sql(kMaster, "set global read_only = 0;");
  EXPECT_TRUE(WaitFor(10, [&] { return AllActive(lab_, kMaster) && AllActive(lab_, kSlave); }));
  std::this_thread::sleep_for(std::chrono::seconds(20));
  EXPECT_EQ(ClusterTakeovers(lab_), 4);

  // Clocks that lie: the slave's daemon 30 s behind, member2's 30 s ahead, then the master's
  // stepped 20 s forward while it runs. Nobody is taken for dead, and a killed member is found
  // in its usual time.
  for (auto [i, offset] : {std::pair{kSlave, "-30s"}, {kMember2, "+30s"}, {kMaster, "+0"}}) {
    ASSERT_EQ(lab_.Run(i, {"-stop"}).status, 0);
    ASSERT_EQ(lab_.StartDaemonWithClock(i, offset).status, 0) << lab_.Info(i).name;
  }
  std::this_thread::sleep_for(std::chrono::seconds(20));
  lab_.SetClock(kMaster, "+20s");
  std::this_thread::sleep_for(std::chrono::seconds(20));
  EXPECT_EQ(ClusterTakeovers(lab_), 4);
  death = Kill(kMember1);
  after = FoundAfter(kMember1, kMaster, death, 30);
  EXPECT_TRUE(after > 0 && after <= 19) << after << " s";
  EXPECT_TRUE(WaitFor(10, [&] { return ClusterTakeovers(lab_) == 5; }));
  EXPECT_EQ(DetectedOtherThan(lab_, dead), 0);
}

}  // namespace
}  // namespace qorlab
