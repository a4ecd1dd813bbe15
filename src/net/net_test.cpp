// The echo request this process sends and the replies that answer it.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <vector>

#include "net/icmp_echo.h"

namespace qor {
namespace {

TEST(Net, EchoRequestAndTheRepliesThatAnswerIt) {
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
