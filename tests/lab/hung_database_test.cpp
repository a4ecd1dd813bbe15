// A running cluster whose master's database stops answering while its host still answers ping:
// its packets dropped, or its server stopped. Every daemon's cycle goes on within its bound on
// database waits, so the slave's database keeps every server's heartbeat, nobody is taken for
// dead; once the master's database answers again, both databases are whole within a few cycles.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

using LabHungDatabase = LabCluster;

// The longest time, in seconds, without a rewrite of each row in database db
// over the next seconds: from now to the first rewrite, between rewrites, from the last to the
// end.
std::map<std::string, double> LongestStalls(const Lab& lab, int db, int seconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now(), end = start + std::chrono::seconds(seconds);
  std::map<std::string, int64_t> seen;
  std::map<std::string, Clock::time_point> since;
  std::map<std::string, double> worst;
  auto note = [&](const std::string& host, Clock::time_point t) {
    double gap = std::chrono::duration<double>(t - since[host]).count();
    if (gap > worst[host]) worst[host] = gap;
    since[host] = t;
  };
  for (int i = 0; i < seconds * 5 && Clock::now() < end; ++i) {
    Clock::time_point t = Clock::now();
    for (const ClusterRow& r : ReadRows(lab, db)) {
      if (!seen.count(r.hostname)) {
        seen[r.hostname] = r.updated_at;
        since[r.hostname] = start;
      } else if (r.updated_at != seen[r.hostname]) {
        seen[r.hostname] = r.updated_at;
        note(r.hostname, t);
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  for (const auto& [host, at] : seen) note(host, Clock::now());
  return worst;
}

void ExpectFresh(const Lab& lab, const std::map<std::string, double>& stalls) {
  EXPECT_EQ(static_cast<int>(stalls.size()), lab.size());
  for (const auto& [host, stall] : stalls) {
    EXPECT_LE(stall, 8.0) << host << "'s row went that long without a rewrite";
  }
}

// A database that did not answer is no reason to take anyone for dead.
void ExpectNobodyDown(Lab& lab) {
  for (int i = 0; i < lab.size(); ++i) {
    EXPECT_FALSE(Logged(lab, i, "Detected_")) << lab.Info(i).name;
    EXPECT_EQ(Takeovers(lab, i), 0) << lab.Info(i).name;
  }
}

TEST_F(LabHungDatabase, StoppedServerCostsTheOthersOneBoundedWaitPerCycle) {
  ASSERT_TRUE(StartAndJoin());
  std::string pid;
  std::ifstream(lab_.dir() + "/" + lab_.Info(kMaster).name + "/db/mysqld.pid") >> pid;
  ASSERT_FALSE(pid.empty());
  // The pid is the one in the master's own pid namespace.
  ASSERT_EQ(lab_.Shell(kMaster, "kill -STOP " + pid).status, 0);
  std::map<std::string, double> stalls = LongestStalls(lab_, kSlave, 60);
  ASSERT_EQ(lab_.Shell(kMaster, "kill -CONT " + pid).status, 0);
  ExpectFresh(lab_, stalls);

  int64_t back = ReadRows(lab_, kSlave).at(0).now;
  auto whole = [&](int db) {
    if (!AllActive(lab_, db)) return false;
    for (const ClusterRow& r : ReadRows(lab_, db)) {
      if (r.updated_at <= back) return false;
    }
    return true;
  };
  EXPECT_TRUE(WaitFor(10, [&] { return whole(kMaster) && whole(kSlave); }))
      << AllActive(lab_, kMaster).message() << " / " << AllActive(lab_, kSlave).message();
  // Some cycles on: the monitors have read the master's database again since it came back.
  std::this_thread::sleep_for(std::chrono::seconds(6));
  ExpectNobodyDown(lab_);
}

}  // namespace
}  // namespace qorlab
