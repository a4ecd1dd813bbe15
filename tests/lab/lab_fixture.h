// What the end-to-end tests share: a lab per test (four hosts unless said: master, slave, two
// members) in a directory of the test's own under the build tree, and checks that say what differs
// when the cluster is not as expected.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "lab/cluster_view.h"
#include "lab/lab.h"

namespace qorlab {

constexpr int kMember1 = 2;
constexpr int kMember2 = 3;

// Success when database db holds exactly one active row per host of the lab, each with its
// host's name, address, role and role code; otherwise what differs.
::testing::AssertionResult AllActive(const Lab& lab, int db);

// True when host i's syslog holds a message text that begins with prefix.
inline bool Logged(Lab& lab, int i, const std::string& prefix) {
  return CountLogged(lab, i, prefix) > 0;
}

class LabCluster : public ::testing::Test {
 protected:
  // tz: the hosts' time zone (empty: this machine's).
  explicit LabCluster(int hosts = 4, const std::string& tz = "");
  void SetUp() override { ASSERT_EQ(lab_.Up(), "") << "the lab did not come up"; }
  void TearDown() override { lab_.Down(); }
  // Starts a daemon on every host and waits (bounded) until both databases hold every host's
  // active row.
  ::testing::AssertionResult StartAndJoin(int seconds = 10);

  Lab lab_;
};

}  // namespace qorlab
