#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/shell.h"

namespace qor {
namespace {

TEST(Base, TextsAreCutAtCapacityNeverInsideAUtf8Character) {
  struct {
    const char* text;
    bool fits;
    const char* kept;  // in 4 bytes
  } cases[] = {
      {"abcd", true, "abcd"},
      {"abcde", false, "abcd"},
      {"abc\xc3\xa9", false, "abc"},
      {"a\xe2\x82\xac\xe2\x82\xac", false, "a\xe2\x82\xac"},
      {"ab\xa9\xa9\xa9", false, "ab\xa9\xa9"},  // not UTF-8: cut where it is
  };
  for (const auto& c : cases) {
    FixedText<5> t;
    EXPECT_EQ(t.set(c.text), c.fits) << c.text;
    EXPECT_STREQ(t.c_str(), c.kept);
    EXPECT_EQ(t.format("%s", c.text), c.fits);
    EXPECT_STREQ(t.c_str(), c.kept);
  }
}

TEST(Base, ShellWordsAndLinePieces) {
  struct {
    const char* value;
    bool safe;
  } cases[] = {{"127.0.0.1", true}, {"db-1.example_x", true}, {"", false},    {"a b", false},
               {"a;rm", false},     {"$(x)", false},          {"a'b", false}, {"-n", false}};
  for (const auto& c : cases) EXPECT_EQ(IsShellSafeWord(c.value), c.safe) << c.value;
  EXPECT_FALSE(IsShellSafeWord(nullptr));
  std::string got;
  EXPECT_TRUE(
      RunShell("printf 'abcdef\\nxy\\n'", 4, [&](char* line) { got += line + std::string("|"); }));
  EXPECT_EQ(got, "abc|def|\n|xy\n|");
}

// A pipeline past its bound ends with its whole process group: the shell and what it started in
// the background, which would otherwise keep the pipe open; or the shell itself, after it closed
// its output. The daemon ignores SIGCHLD, which turns a plain wait into one without a bound.
TEST(Base, PipelinePastItsBoundIsKilledWithItsGroup) {
  struct {
    const char* command;  // prints the pid that must be gone afterwards
    bool ignoreChld;
  } cases[] = {
      {"sleep 60 & echo $!; wait", false},
      {"echo $$; exec >&-; sleep 60", true},
      {"echo $$; exec >&-; sleep 60", false},
  };
  for (const auto& c : cases) {
    signal(SIGCHLD, c.ignoreChld ? SIG_IGN : SIG_DFL);
    std::string pid;
    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(RunShell(
        c.command, 64, [&](char* line) { pid = line; }, 1));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << c.command;
    signal(SIGCHLD, SIG_DFL);
    pid.resize(std::strcspn(pid.c_str(), "\n"));
    ASSERT_FALSE(pid.empty());
    std::string state;
    for (int i = 0; i < 50; ++i) {
      std::ifstream stat("/proc/" + pid + "/stat");
      state.clear();
      std::getline(stat, state);
      if (state.empty() || state.find(") Z") != std::string::npos) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_TRUE(state.empty() || state.find(") Z") != std::string::npos)
        << c.command << ": " << state;
  }
}

// A take-over whose shell was killed before it could report must not pass for one that succeeded.
TEST(Base, StartedCommandWhoseShellIsKilledEndsWithoutAStatus) {
  BackgroundShell shell;
  ASSERT_TRUE(RealShell().Start("kill -9 $$", &shell));
  WaitShell(shell, 10000);
  EXPECT_EQ(PollShell(shell), kShellNoStatus);
}

TEST(Base, DatesHaveTwoDigitFieldsAndUpdatedAtKeepsTheZonesRules) {
  setenv("TZ", "UTC", 1);
  tzset();
  struct {
    int form;
    const char* text;
  } cases[] = {{kDateTime, "2026/03/04 05:06:07"},
               {kDateStamp, "20260304_050607"},
               {kDateSlashed, "2026/03/04"},
               {kDateMonth, "202603"}};
  for (const auto& c : cases) {
    char text[32];
    FormatQorDate(text, sizeof text, 1772600767, c.form);  // 2026-03-04 05:06:07 UTC
    EXPECT_STREQ(text, c.text) << c.form;
  }
  // The text is the zone's wall clock, daylight saving time included; in the hour the clocks go
  // back it names two instants, and the reader's own clock tells which.
  struct {
    const char* zone;
    const char* text;
    int64_t near;
    int64_t at;
  } stamps[] = {
      {"Europe/Berlin", "2026-07-01 12:00:00", 1782900000, 1782900000},     // CEST
      {"Europe/Berlin", "2026-01-01 12:00:00", 1767265200, 1767265200},     // CET
      {"Australia/Sydney", "2026-11-25 12:00:00", 1795568400, 1795568400},  // AEDT
      {"Europe/Berlin", "2026-10-25 02:30:00", 1792888210, 1792888200},     // first pass, CEST
      {"Europe/Berlin", "2026-10-25 02:30:00", 1792891810, 1792891800},     // second pass, CET
      {"Europe/Berlin", "garbage", 1792891810, 0},
  };
  for (const auto& c : stamps) {
    setenv("TZ", c.zone, 1);
    tzset();
    EXPECT_EQ(ParseUpdatedAt(c.text, c.near), c.at) << c.zone << " " << c.text;
  }
  setenv("TZ", "UTC", 1);
  tzset();
}

}  // namespace
}  // namespace qor
