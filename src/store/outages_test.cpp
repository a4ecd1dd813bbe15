#include "store/outages.h"

#include <gtest/gtest.h>

#include <vector>

namespace qor {
namespace {

// Calls that begin and end at the given milliseconds (negative: the call failed), then the seconds
// of [from, to] in which the database did not answer, and the latest outage among them.
TEST(Outages, OnlyTimeWithoutAnAnswerCounts) {
  struct {
    const char* name;
    std::vector<int64_t> calls;
    int64_t from, to, seconds, latest;
  } cases[] = {
      {"from the failing call to the next answer", {2000, -4000, 9000}, 0, 20, 5, 1},
      {"still failing: up to now", {2000, -4000, -6000}, 0, 10, 6, 1},
      {"only the part after the row's stamp", {2000, -4000, 9000}, 5, 20, 4, 1},
      {"stalls add up", {500, -1000, 4000, 10000, -11000, 14000}, 0, 20, 6, 2},
      {"no answer since the process began", {-5000}, 0, 8, 8, 1},
      {"a part of a second counts whole", {1000, -1200, 1500}, 0, 9, 1, 1},
  };
  for (const auto& c : cases) {
    Outages o;
    for (int64_t call : c.calls) o.Note(call > 0, call > 0 ? call : -call, call > 0 ? call : -call);
    int64_t latest = -1;
    EXPECT_EQ(o.Within(c.from, c.to, &latest), c.seconds) << c.name;
    EXPECT_EQ(latest, c.latest) << c.name;
  }
  // The oldest outages give way to new ones.
  Outages many;
  for (int i = 0; i < Outages::kSpans + 5; ++i) {
    many.Note(true, i * 10000 + 1, i * 10000);
    many.Note(false, i * 10000 + 1000, i * 10000 + 500);
  }
  EXPECT_EQ(many.count, Outages::kSpans);
  EXPECT_EQ(many.spans[0].id, 6);
}

}  // namespace
}  // namespace qor
