// The cycle loop's schedule and the -lj listing's text.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "cli/json_listing.h"
#include "cli/schedule.h"

namespace qor {
namespace {

// The cycle loop's schedule, cycle by cycle from fresh counters.
TEST(Schedule, EachCycleFromTheCounters) {
  // tplsyncAt: the cycle in which a Tplsync request is raised (0: none); full: the flag the
  // cycle's heartbeat writes with.
  struct {
    int tplsyncAt = 0, cycle = 0;
    bool recheck = false, slow = false;
    int full = 0;
  } rows[] = {
      {.cycle = 1, .full = 1},
      {.cycle = 2},
      {.cycle = 31, .recheck = true},
      {.cycle = 32, .full = 1},
      {.cycle = 61, .recheck = true},
      {.cycle = 151, .recheck = true, .slow = true},
      {.cycle = 152, .full = 1},
      {.cycle = 181, .recheck = true},
      {.cycle = 301, .recheck = true, .slow = true},
      // A request pulls at once, and the schedule starts again from there.
      {.tplsyncAt = 7, .cycle = 7, .slow = true},
      {.tplsyncAt = 7, .cycle = 37, .recheck = true},
      {.tplsyncAt = 7, .cycle = 157, .recheck = true, .slow = true},
  };
  for (const auto& r : rows) {
    LoopCounters c;
    for (int cycle = 1; cycle < r.cycle; ++cycle)
      FinishCycle(c, PlanCycle(c, cycle == r.tplsyncAt));
    const CyclePlan plan = PlanCycle(c, r.cycle == r.tplsyncAt);
    EXPECT_EQ(std::tuple(plan.recheck, plan.slow, c.full), std::tuple(r.recheck, r.slow, r.full))
        << "cycle " << r.cycle;
  }
}

// Whatever bytes a row holds, the text is JSON and UTF-8: characters pass, the rest is U+FFFD.
TEST(JsonListing, StringsAreValidUtf8) {
  const struct {
    const char* in;
    const char* out;
  } cases[] = {
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
       "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\""},
      {"q\"b\\\n\x7f", "\"q\\\"b\\\\\\u000a\x7f\""},
      {"latin1 \xe9t\xe9", "\"latin1 \\ufffdt\\ufffd\""},
      {"cut \xe2\x82", "\"cut \\ufffd\\ufffd\""},
      {"overlong \xc0\xaf \xe0\x80\xaf", "\"overlong \\ufffd\\ufffd \\ufffd\\ufffd\\ufffd\""},
      {"surrogate \xed\xa0\x80", "\"surrogate \\ufffd\\ufffd\\ufffd\""},
      {"beyond \xf4\x90\x80\x80", "\"beyond \\ufffd\\ufffd\\ufffd\\ufffd\""},
  };
  for (const auto& c : cases) {
    std::string out;
    AppendJsonString(out, c.in);
    EXPECT_EQ(out, c.out) << c.in;
  }
}

// A database that answers but whose rows could not be read says so.
TEST(JsonListing, SaysWhenRowsWereNotRead) {
  std::string out;
  AppendDatabaseJson(out, "master", "10.0.0.1", true, false, nullptr, 0, 0);
  EXPECT_EQ(out,
            "{\"database\":\"master\",\"address\":\"10.0.0.1\",\"answers\":true,"
            "\"read\":false,\"rows\":[]}");
}

}  // namespace
}  // namespace qor
