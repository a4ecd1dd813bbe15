// Ping through a scripted shell (which output counts as an answer, how many attempts, which
// addresses are never put on a command line), one real ping of the loopback, and the password
// encoding of the connection URL.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "lab/syslog_catcher.h"
#include "store/pools.h"
#include "support/fakes.h"

namespace qortest {

using qorlab::SyslogCatcher;

extern SyslogCatcher* g_syslog;

namespace {

TEST(StorePing, OnlyAReplyLineAnswers) {
  struct Case {
    const char* name;
    std::string output;
    int result;
  } cases[] = {
      {"reply after the header",
       "PING 127.0.0.5 (127.0.0.5) 56(84) bytes of data.\n"
       "64 bytes from 127.0.0.5: icmp_seq=1 ttl=64 time=0.031 ms\n",
       0},
      {"reply line of nine characters", "64 bytes\n", 0},
      {"summary only",
       "PING 10.9.9.9 (10.9.9.9) 56(84) bytes of data.\n\n--- 10.9.9.9 ping statistics ---\n"
       "1 packets transmitted, 0 received, 100% packet loss, time 0ms\n",
       1},
      {"unknown host", "ping: unknown host nosuch\n", 1},
      {"seven characters", "64 byte", 1},
      {"eight characters without line end", "64 bytes", 1},
      {"indented reply", " 64 bytes from 127.0.0.5\n", 1},
      {"no output", "", 1},
  };
  g_syslog->Take();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    qor::ForgetSilentAddresses();
    FakeShell shell(c.output);
    EXPECT_EQ(qor::Ping("127.0.0.5", 1, 3), c.result);
    EXPECT_EQ(shell.commands.size(), c.result == 0 ? 1u : 3u);
    for (size_t max : shell.lineMaxes) EXPECT_EQ(max, 8192u);
  }
  EXPECT_TRUE(g_syslog->Take().empty());
}

TEST(StorePing, CommandTextAndAttempts) {
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
    qor::ForgetSilentAddresses();
    FakeShell shell("64 bytes from 127.0.0.5: icmp_seq=1\n");
    shell.answerFrom = c.answerFrom;
    shell.startable = c.startable;
    EXPECT_EQ(qor::Ping("127.0.0.5", c.deadline, c.attempts), c.result);
    EXPECT_EQ(shell.commands.size(), c.commands);
    for (const std::string& cmd : shell.commands) {
      EXPECT_EQ(cmd, "/bin/ping -c 1 -w " + std::to_string(c.deadline) + " 127.0.0.5");
    }
  }
}

TEST(StorePing, ASilentAddressIsAskedOncePerCycle) {
  FakeShell shell("");
  qor::ForgetSilentAddresses();
  EXPECT_EQ(qor::Ping("127.0.0.5", 1, 3), 1);
  EXPECT_EQ(qor::Ping("127.0.0.5", 1, 3), 1);
  EXPECT_EQ(shell.commands.size(), 3u);
  qor::ForgetSilentAddresses();
  EXPECT_EQ(qor::Ping("127.0.0.5", 1, 3), 1);
  EXPECT_EQ(shell.commands.size(), 6u);
}

TEST(StorePing, AddressesThatAreNotPlainWordsAreNeverRun) {
  g_syslog->Take();
  FakeShell shell("64 bytes from 127.0.0.1: icmp_seq=1\n");
  // Too long for the command: cut, it would name another host.
  const std::string tooLong = std::string(300, 'h') + ".example";
  for (const char* address : {"127.0.0.1 ", "a b", "127.0.0.1;reboot", "$(id)", "x'y", "\"q\"",
                              "a|b", "", tooLong.c_str()}) {
    SCOPED_TRACE(address);
    EXPECT_EQ(qor::Ping(address, 1, 3), 1);
    EXPECT_EQ(g_syslog->Take().size(), 1u);
  }
  EXPECT_TRUE(shell.commands.empty());
}

TEST(StorePing, LoopbackAnswersARealPing) {
  EXPECT_EQ(qor::Ping("127.0.0.1", 1, 1), 0);
}

TEST(StoreUrlEncode, EncodesThePasswordForTheUrl) {
  struct Case {
    std::string text;
    const char* encoded;
  } cases[] = {
      {"a b&c", "a+b%26c"},
      {"\xc3\xa9", "%c3%a9"},
      {"AZaz09-_.~", "AZaz09-_.~"},
      {"Qor Pw&50%x", "Qor+Pw%2650%25x"},
      {"/+%=?@:#", "%2f%2b%25%3d%3f%40%3a%23"},
      {"\x01\x7f\xff\x1b", "%01%7f%ff%1b"},
      {"", ""},
  };
  for (const Case& c : cases) {
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

}  // namespace
}  // namespace qortest
