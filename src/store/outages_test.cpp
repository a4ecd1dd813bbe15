#include "store/outages.h"

#include <gtest/gtest.h>

#include <vector>

namespace qor {
namespace {

// Calls at the given milliseconds, each answered or not, then the seconds of [from, to] in which
// the database did not answer.
TEST(Outages, OnlyTimeWithoutAnAnswerCounts) {
  struct Call {
    int64_t ms;
    bool answered;
  };
  struct {
    const char* name;
    std::vector<Call> calls;
    int64_t from, to;
    int64_t seconds;
    int64_t latest;
  } cases[] = {
      {"always answered", {{1000, true}, {3000, true}}, 0, 10, 0, 0},
      {"from the last answer to the next",
       {{2000, true}, {4000, false}, {9000, true}},
       0,
       20,
       7,
       1},
      {"still failing: up to now", {{2000, true}, {4000, false}, {6000, false}}, 0, 10, 8, 1},
      {"only the part after the row's stamp",
       {{2000, true}, {4000, false}, {9000, true}},
       5,
       20,
       4,
       1},
      {"none of it before the row's stamp",
       {{2000, true}, {4000, false}, {9000, true}},
       9,
       20,
       0,
       0},
      {"stalls add up, none resets the clock",
       {{0, true}, {1000, false}, {4000, true}, {10000, true}, {11000, false}, {14000, true}},
       0,
       20,
       8,
       2},
      {"no answer since the process began", {{5000, false}}, 0, 8, 8, 1},
      {"a part of a second counts whole", {{1000, true}, {1200, false}, {1500, true}}, 0, 9, 1, 1},
  };
  for (const auto& c : cases) {
    Outages o;
    for (const Call& call : c.calls) o.Note(call.answered, call.ms);
    int64_t latest = -1;
    EXPECT_EQ(o.Within(c.from, c.to, &latest), c.seconds) << c.name;
    EXPECT_EQ(latest, c.latest) << c.name;
  }
  // The oldest outages give way to new ones.
  Outages many;
  for (int i = 0; i < Outages::kSpans + 5; ++i) {
    many.Note(true, i * 10000);
    many.Note(false, i * 10000 + 1000);
  }
  EXPECT_EQ(many.count, Outages::kSpans);
  EXPECT_EQ(many.spans[0].id, 6);
}

}  // namespace
}  // namespace qor
