#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/line_reader.h"
#include "base/shell.h"
#include "lab/temp_dir.h"

namespace qor {
namespace {

TEST(BaseFixedText, WritesAreCutAtCapacityAndSaySo) {
  FixedText<8> t;
  EXPECT_TRUE(t.set("1234567"));
  EXPECT_EQ(t.size(), 7u);
  EXPECT_FALSE(t.set("123456789"));
  EXPECT_STREQ(t.c_str(), "1234567");
  EXPECT_TRUE(t.set("abc"));
  EXPECT_TRUE(t.append("defg"));
  EXPECT_FALSE(t.append("h"));
  EXPECT_STREQ(t.c_str(), "abcdefg");
  EXPECT_FALSE(t.format("%d", 123456789));
  EXPECT_STREQ(t.c_str(), "1234567");
  EXPECT_TRUE(t.set(static_cast<const char*>(nullptr)));
  EXPECT_TRUE(t.empty());
}

TEST(BaseFixedText, CutsNeverSplitAUtf8Character) {
  struct Case {
    const char* text;
    const char* kept;  // in 4 characters
  } cases[] = {
      {"ab\xc3\xa9z", "ab\xc3\xa9"},                   // e acute fits whole
      {"abc\xc3\xa9", "abc"},                          // two-byte character cut after its lead
      {"a\xe2\x82\xac\xe2\x82\xac", "a\xe2\x82\xac"},  // euro signs: the second is cut inside
      {"\xf0\x9f\x98\x80x", "\xf0\x9f\x98\x80"},       // four bytes fit exactly
      {"x\xf0\x9f\x98\x80", "x"},                      // four-byte character cut inside
      {"ab\xa9\xa9\xa9", "ab\xa9\xa9"},                // not UTF-8: cut where it is
  };
  for (const Case& c : cases) {
    FixedText<5> t;
    EXPECT_FALSE(t.set(c.text));
    EXPECT_STREQ(t.c_str(), c.kept);
    EXPECT_FALSE(t.format("%s", c.text));
    EXPECT_STREQ(t.c_str(), c.kept);
  }
}

TEST(BaseShell, OnlyAddressAndHostCharactersAreSafe) {
  struct Case {
    const char* value;
    bool safe;
  } cases[] = {
      {"127.0.0.1", true}, {"db-1.example_x", true}, {"fe80::1", true}, {"", false},
      {"a b", false},      {"a;rm", false},          {"$(x)", false},   {"a'b", false},
      {"a\nb", false},     {"a/b", false},           {"-n", false},
  };
  for (const Case& c : cases) EXPECT_EQ(IsShellSafeWord(c.value), c.safe) << c.value;
  EXPECT_FALSE(IsShellSafeWord(nullptr));
}

TEST(BaseShell, RunnerDeliversLinesInPiecesOfTheLineLimit) {
  std::string got;
  int pieces = 0;
  bool ran = RunShell("printf 'abcdef\\nxy\\n'", 4, [&](char* line) {
    got += line;
    got += '|';
    ++pieces;
  });
  EXPECT_TRUE(ran);
  EXPECT_EQ(got, "abc|def|\n|xy\n|");
  EXPECT_EQ(pieces, 4);
}

// A pipeline past its bound ends with its whole process group: the shell and what it started in
// the background, which would otherwise keep the pipe open.
TEST(BaseShell, PipelinePastItsBoundIsKilledWithItsGroup) {
  std::string pid;
  bool ran = RunShell(
      "sleep 60 & echo $!; wait", 64, [&](char* line) { pid = line; }, 1);
  EXPECT_TRUE(ran);
  ChopLast(pid.data());
  pid.resize(std::strlen(pid.c_str()));
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

TEST(BaseLineReader, ReadsLikeFgetsIncludingNulAndLongLines) {
  qorlab::TempDir dir;
  using namespace std::string_literals;
  std::string content = "one\n" + std::string(10, 'x') + "\nz\0y\nlast"s;
  std::string path = dir.Write("f", content);
  LineReader in(path.c_str());
  ASSERT_TRUE(in.ok());
  char buf[8];
  std::string pieces;
  while (in.Next(buf, sizeof buf)) pieces += std::string(buf) + "|";
  EXPECT_EQ(pieces, "one\n|xxxxxxx|xxx\n|z|last|") << "a NUL ends the text of its piece";
  EXPECT_FALSE(LineReader("/nonexistent/file").ok());
}

TEST(BaseClock, DateFormsHaveTwoDigitFields) {
  setenv("TZ", "UTC", 1);
  tzset();
  struct Case {
    int form;
    const char* text;
  } cases[] = {
      {kDateTime, "2026/03/04 05:06:07"}, {kDateStamp, "20260304_050607"},
      {kDateSlashed, "2026/03/04"},       {kDateMonth, "202603"},
      {9, "2026/03/04 05:06:07"},
  };
  time_t t = 1772600767;  // 2026-03-04 05:06:07 UTC
  for (const Case& c : cases) {
    char text[32];
    FormatQorDate(text, sizeof text, t, c.form);
    EXPECT_STREQ(text, c.text) << c.form;
  }
  char text[32];
  FormatQorDate(text, sizeof text, 1798761599, kDateTime);  // 2026-12-31 23:59:59 UTC
  EXPECT_STREQ(text, "2026/12/31 23:59:59");
  int64_t before = static_cast<int64_t>(time(nullptr)) * 1000;
  int64_t mill = getqortimemill();
  EXPECT_GE(mill, before);
  EXPECT_LT(mill, before + 2000);
}

}  // namespace
}  // namespace qor
