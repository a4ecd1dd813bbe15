#include "membership/cutoff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/paths.h"
#include "config/qorconf.h"
#include "membership/monitor_decision.h"
#include "membership/nodedown.h"
#include "support/fakes.h"

namespace qor {
namespace {

TEST(Cutoff, OnlyAServerThatSeesNobodyAndNotItsPeerHoldsItsTakeovers) {
  struct {
    int others, silent;
    bool peerAnswers, cut;
  } rows[] = {
      {3, 3, false, true},  {2, 2, false, true},  {3, 3, true, false},
      {3, 2, false, false}, {1, 1, false, false},  // a master and a slave: no third view
  };
  for (const auto& r : rows) {
    EXPECT_EQ(CutOff(r.others, r.silent, r.peerAnswers), r.cut)
        << r.others << " others, " << r.silent << " silent, peer " << r.peerAnswers;
  }
}

// Passes of a monitor at a second over the servers named by letters: the silent ones, those seen
// writing, those whose rows are fresh only from the status this monitor wrote, those it decided
// to take over, whether its peer answered, and the scripts then run.
TEST(Cutoff, HeldTakeoversAreDroppedForServersThatComeBackAndRunForTheOthers) {
  struct Pass {
    int64_t at;
    std::string silent, writing, marked, due;
    bool peerAnswers;
    int runs;
  };
  const Pass cut = {0, "AB", "", "", "AB", false, 0};
  const std::vector<std::vector<Pass>> scenarios = {
      {cut, {20, "B", "A", "", "", true, 0}, {36, "B", "A", "", "", true, 1}},
      {cut, {20, "AB", "", "", "", true, 0}, {40, "", "AB", "", "", true, 0}},
      {cut,
       {20, "", "", "AB", "", false, 0},
       {22, "B", "A", "", "", true, 0},
       {38, "B", "A", "", "", true, 1}},
      {cut, {20, "AB", "C", "", "", false, 0}, {36, "AB", "C", "", "", false, 2}},
      {{0, "AB", "", "", "AB", true, 2}},
      {{0, "A", "", "", "A", false, 1}},
  };
  ClustRole = kRoleMember;  // the script only: no detection lines, no container moves
  for (size_t s = 0; s < scenarios.size(); ++s) {
    for (size_t p = 0; p < scenarios[s].size(); ++p) {
      const Pass& pass = scenarios[s][p];
      qortest::FakeShell shell;
      PassTakeovers takeovers("test(1)", pass.at);
      auto row = [](char name, int status = kStatusActive) {
        return ClustRecord{.hostname = std::string(1, name).c_str(), .status = status};
      };
      for (char c : pass.silent) takeovers.Saw(row(c), true);
      for (char c : pass.writing) takeovers.Saw(row(c), false);
      for (char c : pass.marked) takeovers.Saw(row(c, kStatusInactive), false);
      for (char c : pass.due) takeovers.Due(row(c));
      takeovers.Finish([&] { return pass.peerAnswers; }, "peer");
      WaitQordown();
      EXPECT_EQ(std::count(shell.commands.begin(), shell.commands.end(), kQordownCommand),
                pass.runs)
          << "scenario " << s << ", pass " << p;
    }
  }
}

}  // namespace
}  // namespace qor
