// The store's pure parts: the password as the connection URL carries it, the selectors that
// cannot be placed in the 128-byte where clause, and the echo request and the replies that answer
// it.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "store/cluster_query.h"
#include "store/icmp_echo.h"
#include "store/pools.h"

namespace qor {
namespace {

TEST(Store, PasswordIsUrlEncoded) {
  struct {
    const char* text;
    const char* encoded;
  } cases[] = {{"Qor Pw&50%x", "Qor+Pw%2650%25x"},
               {"AZaz09-_.~", "AZaz09-_.~"},
               {"/+=?@:#", "%2f%2b%3d%3f%40%3a%23"},
               {"\xc3\xa9\x01", "%c3%a9%01"}};
  for (const auto& c : cases) {
    char out[64];
    ASSERT_TRUE(url_encode(out, sizeof out, c.text));
    EXPECT_STREQ(out, c.encoded);
  }
  char small[6];
  EXPECT_FALSE(url_encode(small, sizeof small, "a b c d"));
}

TEST(Store, SelectorsThatDoNotFitAreRefusedNotCut) {
  // A cut pattern would select other rows. Quotes count doubled.
  SqlText sql;
  struct {
    std::string cond;
    bool fits;
  } cases[] = {{"like_" + std::string(42, 'p'), true},
               {"like_" + std::string(43, 'p'), false},
               {std::string(108, 'h'), true},
               {std::string(109, 'h'), false},
               {std::string(54, '\''), true},
               {std::string(55, '\''), false},
               {"o\\brien", false}};
  for (const auto& c : cases) EXPECT_EQ(BuildClusterSelect(sql, c.cond.c_str()), c.fits) << c.cond;
}

TEST(Store, EchoRequestAndTheRepliesThatAnswerIt) {
  // The reply to request 0x1234/0x0102 to 198.18.0.2 as a raw socket delivers it: an IP header
  // without options, then the request as sent, with the type of a reply.
  uint8_t reply[20 + kEchoRequestSize] = {0x45, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 198, 18, 0, 2};
  auto& request = *reinterpret_cast<uint8_t(*)[kEchoRequestSize]>(reply + 20);
  BuildEchoRequest(request, 0x1234, 0x0102, timeval{7, 9});
  EXPECT_EQ(std::vector<uint8_t>(request, request + 8),
            (std::vector<uint8_t>{8, 0, request[2], request[3], 0x12, 0x34, 0x01, 0x02}));
  EXPECT_EQ(IcmpChecksum(request, sizeof request), 0) << "with its checksum it sums to zero";
  request[0] = 0;
  struct {
    const char* name;
    size_t at;  // the byte of the reply changed
    uint8_t value;
    bool answer;
  } cases[] = {{"the reply", 20, 0, true},
               {"to another process's request", 24, 0x43, false},
               {"to an earlier attempt", 27, 0x01, false},
               {"from another address", 15, 3, false},
               {"the request itself", 20, 8, false}};
  for (const auto& c : cases) {
    std::vector<uint8_t> packet(reply, reply + sizeof reply);
    packet[c.at] = c.value;
    EXPECT_EQ(IsEchoReply(packet.data(), packet.size(), inet_addr("198.18.0.2"), 0x1234, 0x0102),
              c.answer)
        << c.name;
  }
}

}  // namespace
}  // namespace qor
