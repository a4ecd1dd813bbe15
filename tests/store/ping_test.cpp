// Ping through a scripted shell (which output counts as an answer, how many attempts, which
// addresses are never put on a command line), one real ping of the loopback, and the password
// encoding of the connection URL.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "base/shell.h"
#include "store/pools.h"
#include "support/syslog_catcher.h"

namespace qortest {

extern SyslogCatcher* g_syslog;

namespace {

// Answers every command with the same lines, or with none from answerFrom-1 attempts on.
class ScriptedShell : public qor::ShellRunner {
 public:
  ScriptedShell() { qor::SetShellRunner(this); }
  ~ScriptedShell() override { qor::SetShellRunner(nullptr); }
  bool Run(const char* command, size_t lineMax, qor::LineSink sink) override {
    commands.push_back(command);
    lineMaxes.push_back(lineMax);
    if (!startable) return false;
    if (static_cast<int>(commands.size()) < answerFrom) return true;
    for (const std::string& l : lines) {
      std::string copy = l;
      sink(copy.data());
    }
    return true;
  }

  std::vector<std::string> lines;
  bool startable = true;
  int answerFrom = 1;
  std::vector<std::string> commands;
  std::vector<size_t> lineMaxes;
};

struct OutputCase {
  const char* name;
  std::vector<std::string> lines;
  int result;
};

void PrintTo(const OutputCase& c, std::ostream* os) {
  *os << c.name;
}

class StorePingOutput : public ::testing::TestWithParam<OutputCase> {};

TEST_P(StorePingOutput, OnlyAReplyLineAnswers) {
  const OutputCase& c = GetParam();
  g_syslog->Take();
  ScriptedShell shell;
  shell.lines = c.lines;
  EXPECT_EQ(qor::Ping("127.0.0.5", 1, 3), c.result);
  EXPECT_EQ(shell.commands.size(), c.result == 0 ? 1u : 3u);
  for (size_t max : shell.lineMaxes) EXPECT_EQ(max, 8192u);
  EXPECT_TRUE(g_syslog->Take().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Store, StorePingOutput,
    ::testing::Values(OutputCase{"reply after the header",
                                 {"PING 127.0.0.5 (127.0.0.5) 56(84) bytes of data.\n",
                                  "64 bytes from 127.0.0.5: icmp_seq=1 ttl=64 time=0.031 ms\n"},
                                 0},
                      OutputCase{"reply line of nine characters", {"64 bytes\n"}, 0},
                      OutputCase{
                          "summary only",
                          {"PING 10.9.9.9 (10.9.9.9) 56(84) bytes of data.\n", "\n",
                           "--- 10.9.9.9 ping statistics ---\n",
                           "1 packets transmitted, 0 received, 100% packet loss, time 0ms\n"},
                          1},
                      OutputCase{"unknown host", {"ping: unknown host nosuch\n"}, 1},
                      OutputCase{"seven characters", {"64 byte"}, 1},
                      OutputCase{"eight characters without line end", {"64 bytes"}, 1},
                      OutputCase{"indented reply", {" 64 bytes from 127.0.0.5\n"}, 1},
                      OutputCase{"no output", {}, 1}));

using StorePing = ::testing::Test;

TEST_F(StorePing, CommandTextAndAttempts) {
  struct Case {
    int deadline, attempts, answerFrom;
    bool startable;
    int result;
    size_t commands;
  };
  const Case cases[] = {
      {1, 3, 99, true, 1, 3}, {1, 5, 99, true, 1, 5}, {1, 0, 1, true, 1, 0},
      {1, 3, 2, true, 0, 2},  {2, 3, 1, true, 0, 1},  {1, 3, 1, false, 1, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "attempts " << c.attempts << " answerFrom " << c.answerFrom
                                    << " startable " << c.startable);
    ScriptedShell shell;
    shell.lines = {"64 bytes from 127.0.0.5: icmp_seq=1\n"};
    shell.answerFrom = c.answerFrom;
    shell.startable = c.startable;
    EXPECT_EQ(qor::Ping("127.0.0.5", c.deadline, c.attempts), c.result);
    EXPECT_EQ(shell.commands.size(), c.commands);
    for (const std::string& cmd : shell.commands) {
      EXPECT_EQ(cmd, "/bin/ping -c 1 -w " + std::to_string(c.deadline) + " 127.0.0.5");
    }
  }
}

TEST_F(StorePing, AddressesThatAreNotPlainWordsAreNeverRun) {
  g_syslog->Take();
  ScriptedShell shell;
  shell.lines = {"64 bytes from 127.0.0.1: icmp_seq=1\n"};
  for (const char* address :
       {"127.0.0.1 ", "a b", "127.0.0.1;reboot", "$(id)", "x'y", "\"q\"", "a|b", ""}) {
    SCOPED_TRACE(address);
    EXPECT_EQ(qor::Ping(address, 1, 3), 1);
    EXPECT_EQ(g_syslog->Take().size(), 1u);
  }
  EXPECT_TRUE(shell.commands.empty());
}

TEST_F(StorePing, LoopbackAnswersARealPing) {
  EXPECT_EQ(qor::Ping("127.0.0.1", 1, 1), 0);
}

struct EncodeCase {
  std::string text;
  const char* encoded;
};

TEST(StoreUrlEncode, EncodesThePasswordForTheUrl) {
  const EncodeCase cases[] = {
      {"a b&c", "a+b%26c"},
      {"\xc3\xa9", "%c3%a9"},
      {"AZaz09-_.~", "AZaz09-_.~"},
      {"Qor Pw&50%x", "Qor+Pw%2650%25x"},
      {"/+%=?@:#", "%2f%2b%25%3d%3f%40%3a%23"},
      {"\x01\x7f\xff", "%01%7f%ff"},
      {"", ""},
  };
  for (const EncodeCase& c : cases) {
    SCOPED_TRACE(c.text);
    char out[64];
    ASSERT_TRUE(qor::url_encode(out, sizeof out, c.text.c_str()));
    EXPECT_STREQ(out, c.encoded);
  }
}

TEST(StoreUrlEncode, RefusesAnOutputThatIsTooSmall) {
  struct Case {
    const char* text;
    size_t size;
    bool fits;
  };
  const Case cases[] = {{"abcd", 5, true}, {"abcd", 4, false}, {"a&", 5, true},
                        {"a&", 4, false},  {"&", 3, false},    {"", 1, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.text << " in " << c.size);
    char out[8];
    std::fill(std::begin(out), std::end(out), 'Z');
    EXPECT_EQ(qor::url_encode(out, c.size, c.text), c.fits);
    EXPECT_LT(strnlen(out, sizeof out), c.size);
  }
}

TEST(StoreUrlEncode, ToHexTakesTheLowFourBits) {
  const std::pair<int, char> cases[] = {{0, '0'},  {9, '9'},         {10, 'a'},
                                        {15, 'f'}, {16, '0'},        {0x1b, 'b'},
                                        {-1, 'f'}, {0xc3 >> 4, 'c'}, {0xa9, '9'}};
  for (const auto& [value, digit] : cases) EXPECT_EQ(qor::to_hex(value), digit) << value;
}

}  // namespace
}  // namespace qortest
