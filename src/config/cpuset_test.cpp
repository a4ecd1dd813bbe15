#include "config/cpuset.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/shell.h"
#include "config/processors.h"
#include "config/qorconf.h"

namespace qor {
namespace {

class ConfigCpusetTest : public testing::Test {
 protected:
  void SetUp() override {
    cnf = Cnf{};
    Cpu = CpuRecord{};
    Xmode = 0;
    InitCpusets();
    Cpusetnum = 0;
  }
};

// count numbered pieces: "0,1,2" or "[0][1][2]".
std::string Numbered(int count, bool groups) {
  std::string out;
  for (int i = 0; i < count; ++i) {
    out += groups ? "[" + std::to_string(i) + "]" : (i ? "," : "") + std::to_string(i);
  }
  return out;
}

const std::string kSet127 = "0-3" + std::string(124, '-');

// Every slot starts as "old" and the count as 7, so each case shows exactly which slots it
// wrote and whether it set the count: slots past `sets` must still read "old".
TEST_F(ConfigCpusetTest, GetcpusetBuildsSetsAndClipsThemToTheProcessors) {
  const std::vector<std::string> twelve = {"0", "1", "2", "3", "4",  "5",
                                           "6", "7", "8", "9", "10", "11"};
  struct Case {
    std::string text;
    int procs, ret, num;
    std::vector<std::string> sets;
  } cases[] = {
      {"", 32, 1, 0, {}},
      {"0", 32, 0, 0, {}},
      {"all", 32, 0, 0, {}},
      {"auto", 32, 0, 0, {}},
      {"ext36", 8, 0, 2, {"0-17,36-53", "18-35,54-71"}},
      {"ext44", 8, 0, 2, {"0-21,44-65", "22-43,66-87"}},
      {"0-3,4-7", 32, 0, 2, {"0-3", "4-7"}},
      {"0 - 3 , 4-7 ", 32, 0, 2, {"0-3", "4-7"}},
      {"0-7,16-23", 32, 0, 2, {"0-7", "16-23"}},
      {"0-7,16-23", 16, 0, 2, {"0-7", ""}},
      {"0-40", 32, 0, 1, {"0-31", ""}},
      {"0-3,8-20,30-31", 16, 0, 2, {"0-3", "8-15", ""}},
      {"0-3,8-11,40-47,1-2", 16, 0, 3, {"0-3", "8-11", "", "1-2"}},
      {"5", 4, 0, 1, {""}},
      {"0-3,", 32, 0, 2, {"0-3", ""}},
      {"0-3;4-7", 32, 1, 7, {}},
      {"0-3,4;5", 32, 1, 7, {"0-3"}},
      {"x1", 32, 1, 7, {}},
      {"-1", 32, 1, 7, {}},
      {"[0,1][2,3]", 32, 0, 2, {"0,1", "2,3", ""}},
      {"[0, 1] x ] [2,3]", 32, 0, 2, {"0,1", "2,3", ""}},
      {"[0,1][2", 32, 0, 1, {"0,1", "2"}},
      {"[40,41]", 32, 0, 1, {"40,41", ""}},
      {"[0-3]", 32, 1, 7, {}},
      {"[0,1][2[3]", 32, 1, 7, {"0,1"}},
      {Numbered(12, false), 32, 0, 12, twelve},
      {Numbered(12, true), 32, 0, 12, twelve},
      {Numbered(13, false), 32, 1, 7, twelve},
      {Numbered(13, true), 32, 1, 7, twelve},
      {Numbered(40, false), 32, 1, 7, twelve},
      {kSet127, 32, 0, 1, {kSet127}},
      {kSet127 + "-", 32, 1, 7, {}},
  };
  for (const Case& c : cases) {
    CpusetText slots[kCpusetSlots];
    for (CpusetText& s : slots) s = "old";
    int num = 7;
    EXPECT_EQ(getcpuset(slots, c.text.c_str(), &num, c.procs), c.ret) << c.text;
    EXPECT_EQ(num, c.num) << c.text;
    for (size_t i = 0; i < kCpusetSlots; ++i) {
      EXPECT_EQ(slots[i].view(), i < c.sets.size() ? c.sets[i] : "old") << c.text << " #" << i;
    }
  }
}

// "0-3,'4-7": the shell count of a text with an odd number of quotes is 0, so one piece adds.
TEST_F(ConfigCpusetTest, CnfcoreCountsTheConfiguredProcessors) {
  struct Case {
    const char* cpuset;
    int cores;
  } cases[] = {{"all", 8},        {"ext36", 8},
               {"0-7,16-23", 16}, {"0-40", 41},
               {"0-3;4-7", 4},    {"0-7,9", 9},
               {"9,0-1", 3},      {"0,1,2", 8},
               {"0-0", 1},        {"1-0", 8},
               {"0-1-5", 2},      {"0-7,,8-11", 12},
               {",0-3,", 4},      {"0-3, 4-7", 8},
               {"[0,1][2,3]", 8}, {"0-2147483646", INT_MAX},
               {"0-3,'4-7", 4},   {"0-1000000000,0-1000000000,0-1000000000", INT_MAX}};
  for (const Case& c : cases) {
    cnf.cpuset = c.cpuset;
    Cpu.cores = 8;
    cnfcore();
    EXPECT_EQ(Cpu.cores, c.cores) << c.cpuset;
  }
}

TEST_F(ConfigCpusetTest, CharsplitSkipsEmptyPiecesAndStopsAtTheLimit) {
  struct Case {
    const char* text;
    const char* delimiters;
    std::vector<std::string> pieces;
  } cases[] = {{"a,b,,c,", ",", {"a", "b", "c"}},
               {",,,", ",", {}},
               {"", ",", {}},
               {"0-7", "-", {"0", "7"}},
               {"a;b,c", ";,", {"a", "b", "c"}}};
  for (const Case& c : cases) {
    std::string buf = c.text;
    char* parts[kMaxSplitParts];
    int n = charsplit(buf.data(), c.delimiters, parts, kMaxSplitParts);
    EXPECT_EQ(std::vector<std::string>(parts, parts + n), c.pieces) << c.text;
  }
  std::string many = Numbered(kMaxSplitParts + 5, false);
  char* parts[kMaxSplitParts];
  EXPECT_EQ(charsplit(many.data(), ",", parts, kMaxSplitParts), kMaxSplitParts);
  EXPECT_STREQ(parts[kMaxSplitParts - 1], "127");
}

// The count the platform has always used comes from this pipeline; it is run here only to check
// the in-process count against it. The first line only silences the odd-quote syntax errors.
int PipelineCount(const std::string& text, char delimiter) {
  const std::string d(1, delimiter);
  const std::string command = "exec 2>/dev/null\necho '" + text + "' | sed -e 's@" + d + "@" + d +
                              "\\n@g' | grep -c '" + d + "' | tr -d '\\n'";
  std::string out;
  EXPECT_TRUE(RunShell(command.c_str(), 1024, [&](char* line) { out += line; })) << command;
  return std::atoi(out.c_str());
}

// No text has an even, non-zero number of single quotes: part of it would stand unquoted on the
// command line. The odd-quote texts never run: the shell refuses the whole line.
TEST(ConfigCharnum, MatchesTheShellPipeline) {
  // By what echo makes of them: plain texts, octal escapes, "\c", other backslashes, echo's own
  // options, and quotes.
  const std::vector<std::vector<std::string>> corpus = {
      {"0-7,16-23", "0-3", "", ",", ",,,", "-", "--", ",0-3,", "-0-3-", "0,,1",
       "1,2,3,4,5,6,7,8,9,10,11,12", "0 - 3 , 4", "  ,  ", "a b  c,d", "\t,\t-"},
      {"\\054", "\\0054", "\\0055", "\\55", "\\055,", "\\54\\54", "\\1054", "\\0541", "\\0",
       "\\08,", "\\7", "\\101,-", "\\555,", "\\0777-"},
      {"\\c", "0,1\\c,2", "-\\c-", "-n\\c-"},
      {"\\\\", "\\\\054", "\\\\,", "0\\,1", "\\", "1,\\", "1-\\", "\\x2c", "\\n,\\n", "\\t-\\r",
       "\\e,", "\\-"},
      {"-n", "-n,", "-n-", " -n", "-n ", "-e", "-e,-", "-nn-"},
      {"'", "it's,0-3", "0-1,'", "'-,", "a'b'c'd,-", "\\'"}};
  EXPECT_EQ(PipelineCount("0,1,2", ','), 2);
  for (const std::vector<std::string>& group : corpus) {
    for (const std::string& text : group) {
      for (char d : {',', '-'}) {
        EXPECT_EQ(charnum(text.c_str(), d), PipelineCount(text, d))
            << '"' << text << "\" with " << d;
      }
    }
  }
}

}  // namespace
}  // namespace qor
