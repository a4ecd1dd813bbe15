// A cluster of many servers: every daemon writes for a while and nobody is found silent in either
// database; then a member's daemon is killed and found within the small lab's bound.
// QOR_SCALE_MEMBERS members besides the master and the slave (14: 16 servers; at most 62),
// watched for QOR_SCALE_SECONDS (60).
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "lab_fixture.h"

namespace qorlab {
namespace {

int Env(const char* name, int fallback, int high) {
  const char* v = std::getenv(name);
  return v == nullptr ? fallback : std::clamp(std::atoi(v), 1, high);
}

class LabScale : public LabCluster {
 protected:
  LabScale() : LabCluster(Env("QOR_SCALE_MEMBERS", 14, 62) + 2) {}
};

TEST_F(LabScale, NoFalseDetectionAndAKilledMemberIsFound) {
  ASSERT_TRUE(StartAndJoin(60));
  std::this_thread::sleep_for(std::chrono::seconds(Env("QOR_SCALE_SECONDS", 60, 3600)));
  for (int db : {kMaster, kSlave}) {
    EXPECT_EQ(CountLogged(lab_, db, "Detected_"), 0) << lab_.Info(db).name;
    EXPECT_EQ(Takeovers(lab_, db), 0) << lab_.Info(db).name;
    EXPECT_TRUE(AllActive(lab_, db));
  }
  const LabHost& m = lab_.Info(lab_.size() - 1);
  ASSERT_EQ(lab_.Run(lab_.size() - 1, {"-stop"}).status, 0);
  // 15 s of silence, the whole seconds of updated_at, a cycle of the master; the take-over runs
  // after both status writes.
  EXPECT_TRUE(WaitFor(25, [&] { return Takeovers(lab_, kMaster) > 0; }));
  EXPECT_EQ(RowOf(lab_, kMaster, m.name).status, 200);
  EXPECT_EQ(RowOf(lab_, kSlave, m.name).status, 200);
  // Nobody else went silent, and the slave leaves the members to a master that answers.
  EXPECT_EQ(CountLogged(lab_, kMaster, "Detected_1 that " + m.name + "(" + m.address + ")"), 1);
  EXPECT_EQ(CountLogged(lab_, kMaster, "Detected_"), 1);
  EXPECT_EQ(CountLogged(lab_, kSlave, "Detected_") + Takeovers(lab_, kSlave), 0);
}

}  // namespace
}  // namespace qorlab
