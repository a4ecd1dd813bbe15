// A running cluster whose master's database stops answering while its host still answers ping:
// its packets dropped, or its server stopped. Every daemon's cycle goes on within its bound on
// database waits, so the slave's database keeps every server's heartbeat, nobody is taken for
// dead; once the master's database answers again, both databases are whole within a few cycles.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

using LabHungDatabase = LabCluster;

// The most seconds, by the database's own clock, that any row of database db was seen without a
// rewrite at looks five times a second over the next seconds; one entry per row.
std::map<std::string, int64_t> Stalest(const Lab& lab, int db, int seconds) {
  std::map<std::string, int64_t> worst;
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  for (int i = 0; i < seconds * 5 && std::chrono::steady_clock::now() < end; ++i) {
    for (const ClusterRow& r : ReadRows(lab, db)) {
      worst[r.hostname] = std::max(worst[r.hostname], r.now - r.updated_at);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return worst;
}

TEST_F(LabHungDatabase, StoppedServerCostsTheOthersOneBoundedWaitPerCycle) {
  ASSERT_TRUE(StartAndJoin());
  std::string pid;
  std::ifstream(lab_.dir() + "/" + lab_.Info(kMaster).name + "/db/mysqld.pid") >> pid;
  ASSERT_FALSE(pid.empty());
  // The pid is the one in the master's own pid namespace.
  ASSERT_EQ(lab_.Shell(kMaster, "kill -STOP " + pid).status, 0);
  std::map<std::string, int64_t> stalls = Stalest(lab_, kSlave, 60);
  ASSERT_EQ(lab_.Shell(kMaster, "kill -CONT " + pid).status, 0);
  EXPECT_EQ(static_cast<int>(stalls.size()), lab_.size());
  // A cycle of about 2 s plus one bounded wait, in whole seconds of updated_at.
  for (const auto& [host, stall] : stalls) {
    EXPECT_LE(stall, 9) << host << "'s row went that long without a rewrite";
  }

  int64_t back = ReadRows(lab_, kSlave).at(0).now;
  auto whole = [&](int db) {
    std::vector<ClusterRow> rows = ReadRows(lab_, db);
    return AllActive(lab_, db) && std::all_of(rows.begin(), rows.end(), [&](const ClusterRow& r) {
             return r.updated_at > back;
           });
  };
  EXPECT_TRUE(WaitFor(10, [&] { return whole(kMaster) && whole(kSlave); }))
      << AllActive(lab_, kMaster).message() << " / " << AllActive(lab_, kSlave).message();
  // Some cycles on: the monitors have read the master's database again since it came back.
  std::this_thread::sleep_for(std::chrono::seconds(6));
  // A database that did not answer is no reason to take anyone for dead.
  for (int i = 0; i < lab_.size(); ++i) {
    EXPECT_FALSE(Logged(lab_, i, "Detected_")) << lab_.Info(i).name;
    EXPECT_EQ(Takeovers(lab_, i), 0) << lab_.Info(i).name;
  }
}

}  // namespace
}  // namespace qorlab
