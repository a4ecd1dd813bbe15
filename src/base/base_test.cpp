#include <gtest/gtest.h>
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
  } cases[] = {{"127.0.0.1", true}, {"db-1.example_x", true}, {"", false},     {"a b", false},
               {"a;rm", false},     {"$(x)", false},          {"a'b", false}, {"-n", false}};
  for (const auto& c : cases) EXPECT_EQ(IsShellSafeWord(c.value), c.safe) << c.value;
  EXPECT_FALSE(IsShellSafeWord(nullptr));
  std::string got;
  EXPECT_TRUE(RunShell("printf 'abcdef\\nxy\\n'", 4, [&](char* line) { got += line + std::string("|"); }));
  EXPECT_EQ(got, "abc|def|\n|xy\n|");
}

// A pipeline past its bound ends with its whole process group: the shell and what it started in
// the background, which would otherwise keep the pipe open.
TEST(Base, PipelinePastItsBoundIsKilledWithItsGroup) {
  std::string pid;
  auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(RunShell("sleep 60 & echo $!; wait", 64, [&](char* line) { pid = line; }, 1));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  pid.resize(std::strcspn(pid.c_str(), "\n"));
  ASSERT_FALSE(pid.empty());
  std::string state;
  for (int i = 0; i < 50; ++i) {
    std::ifstream stat("/proc/" + pid + "/stat");
    std::getline(stat, state);
    if (state.empty() || state.find(") Z") != std::string::npos) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_TRUE(state.empty() || state.find(") Z") != std::string::npos) << state;
}

// A take-over whose shell was killed before it could report must not pass for one that succeeded.
TEST(Base, StartedCommandWhoseShellIsKilledEndsWithoutAStatus) {
  BackgroundShell shell;
  ASSERT_TRUE(PopenShell().Start("kill -9 $$", &shell));
  WaitShell(shell, 10000);
  EXPECT_EQ(PollShell(shell), kShellNoStatus);
}

TEST(Base, DatesHaveTwoDigitFieldsAndUpdatedAtIsStandardTime) {
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
  // Summer time is in force in July, but the stored text is read as standard time (UTC+1).
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  EXPECT_EQ(ParseUpdatedAt("2026-07-01 12:00:00"), 1782903600);
  EXPECT_EQ(ParseUpdatedAt("2026-01-01 12:00:00"), 1767265200);
  EXPECT_EQ(ParseUpdatedAt("garbage"), 0);
  setenv("TZ", "UTC", 1);
  tzset();
}

}  // namespace
}  // namespace qor
