#include "config/strutil.h"

#include <gtest/gtest.h>

#include <string>

namespace qor {
namespace {

TEST(ConfigStrutil, TrimRemovesSpacesThenTrimSqOneQuoteAtEachEnd) {
  struct Case {
    const char* in;
    const char* trimmed;
    int spaces;
    const char* unquoted;
    int quotes;
  } cases[] = {{"  a b  ", "a b", 4, "a b", 0},
               {"", "", 0, "", 0},
               {"   ", "", 3, "", 0},
               {"\ta\t", "\ta\t", 0, "\ta\t", 0},
               {" \r1\r ", "\r1\r", 2, "\r1\r", 0},
               {" '1' ", "'1'", 2, "1", 2},
               {"''x''", "''x''", 0, "'x'", 2},
               {"'", "'", 0, "", 1},
               {"1'", "1'", 0, "1", 1},
               {"'1", "'1", 0, "1", 1},
               {"\"1\"", "\"1\"", 0, "\"1\"", 0},
               {"' a '", "' a '", 0, " a ", 2},
               {"'1' \t", "'1' \t", 0, "1' \t", 1}};
  for (const Case& c : cases) {
    std::string a = c.in, b = c.in;
    EXPECT_EQ(strtrim(a.data()), c.spaces) << '"' << c.in << '"';
    EXPECT_STREQ(a.c_str(), c.trimmed) << '"' << c.in << '"';
    EXPECT_EQ(strtrimsq(b.data()), c.quotes) << '"' << c.in << '"';
    EXPECT_STREQ(b.c_str(), c.unquoted) << '"' << c.in << '"';
  }
  EXPECT_EQ(strtrim(nullptr), -1);
  EXPECT_EQ(strtrimsq(nullptr), -1);
}

TEST(ConfigStrutil, IsNumberIsTheLengthOfAnAllDigitText) {
  struct Case {
    const char* in;
    int want;
  } cases[] = {{"123", 3}, {"007", 3}, {"", 0},   {"-5", 0},  {"+5", 0},   {"1.5", 0},
               {"12a", 0}, {" 1", 0},  {"1 ", 0}, {"1\r", 0}, {"\xd9", 0}, {nullptr, 0}};
  for (const Case& c : cases) EXPECT_EQ(isnumber(c.in), c.want) << (c.in ? c.in : "(null)");
}

// Bytes above 0x7f are negative chars: they must pass through unchanged, not index ctype tables.
TEST(ConfigStrutil, CaseConversionTouchesOnlyAsciiLetters) {
  std::string lo = "MiXeD-1_z\xc4\xe4", up = lo;
  EXPECT_EQ(strtolower(lo.data()), lo.data());
  EXPECT_EQ(lo, "mixed-1_z\xc4\xe4");
  EXPECT_EQ(strtoupper(up.data()), up.data());
  EXPECT_EQ(up, "MIXED-1_Z\xc4\xe4");
}

TEST(ConfigStrutil, GetvalTakesTheTrimmedTextAfterTheFirstSeparator) {
  struct Case {
    const char* line;
    char sep;
    const char* want;
  } cases[] = {{"key=value\n", 0, "value"},
               {"key = 'v' \n", 0, "v"},
               {"key=a=b", 0, "a=b"},
               {"key\n", 0, ""},
               {"key=", 0, ""},
               {"key='", 0, ""},
               {"key=\"1\"", 0, "\"1\""},
               {"key=1\r\n", 0, "1\r"},
               {"key= \t1 ", 0, "\t1"},
               {"k=v\nrest=1", 0, "v"},
               {"k\n=v", 0, ""},
               {"k:v=1", ':', "v=1"}};
  for (const Case& c : cases) {
    std::string buf = c.line;
    FixedText<64> out = "old";
    getval(out, buf.data(), c.sep);
    EXPECT_STREQ(out.c_str(), c.want) << '"' << c.line << '"';
  }
  std::string line = "k=" + std::string(100, 'v');
  FixedText<8> out;
  getval(out, line.data(), '=');
  EXPECT_STREQ(out.c_str(), "vvvvvvv");
}

TEST(ConfigStrutil, Getval2SplitsAfterTheSeparatorWithoutTrimming) {
  struct Case {
    const char* line;
    char sep;
    const char* key;
    const char* value;
  } cases[] = {{"0-7", '-', "0-", "7"},
               {"0-7-9", '-', "0-", "7-9"},
               {"16", '-', "16", ""},
               {"a=b\nc=d", 0, "a=", "b"},
               {"k= v ", 0, "k=", " v "},
               {"", '-', "", ""},
               {"0123456789-0123456789", '-', "012345", "012345"}};
  for (const Case& c : cases) {
    std::string buf = c.line;
    FixedText<7> key = "old", value = "old";
    getval2(key, value, buf.data(), c.sep);
    EXPECT_STREQ(key.c_str(), c.key) << '"' << c.line << '"';
    EXPECT_STREQ(value.c_str(), c.value) << '"' << c.line << '"';
  }
}

}  // namespace
}  // namespace qor
