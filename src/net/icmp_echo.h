// ICMP echo requests sent by this process itself, the one place that opens an ICMP socket: the
// requests `/bin/ping -c 1 -w DEADLINE` sends, one per attempt, each attempt waiting on the
// monotonic clock for its own reply and never past its deadline. Building a request and judging a
// packet are plain functions; EchoProbe does the I/O. Tests swap the socket's opener
// (SetEchoSocketOpener) to make it "fail to open", so that reachability goes through the shell
// runner, where they make an address "not answer". Single-threaded, as the program is.
#pragma once

#include <netinet/in.h>
#include <sys/time.h>

#include <cstddef>
#include <cstdint>

namespace qor {

// An ICMP header and /bin/ping's 56 data bytes: its replies are the "64 bytes" lines.
constexpr size_t kEchoRequestSize = 64;

// The Internet checksum of size bytes (one's complement of the one's-complement sum).
uint16_t IcmpChecksum(const uint8_t* data, size_t size);
// Echo request id/seq (written in network order) sent at the time sent, checksum included; the
// data are /bin/ping's: the time stamp, then each byte its own offset in the data.
void BuildEchoRequest(uint8_t (&out)[kEchoRequestSize], uint16_t id, uint16_t seq,
                      const timeval& sent);
// True when packet, an IPv4 datagram as a raw socket delivers it, is the reply to the request
// id/seq from asked (network order): an echo reply from that address with both numbers. A reply
// to another process's request or to an earlier attempt is no answer.
bool IsEchoReply(const uint8_t* packet, size_t size, in_addr_t asked, uint16_t id, uint16_t seq);

// Returns a new ICMP socket's descriptor, or -1 with errno set.
using EchoSocketOpener = int (*)();
// nullptr puts the real opener back.
void SetEchoSocketOpener(EchoSocketOpener open);

// The echo requests of one reachability test of address.
class EchoProbe {
 public:
  // Usable for a numeric IPv4 address once the socket is open. A failed open is logged once per
  // process; host names and IPv6 addresses are left to /bin/ping without a word.
  explicit EchoProbe(const char* address);
  ~EchoProbe();
  EchoProbe(const EchoProbe&) = delete;
  EchoProbe& operator=(const EchoProbe&) = delete;

  bool usable() const { return fd_ >= 0; }
  // Sends one request and waits for its reply: true once it came, false when the deadline
  // (seconds) passed first or the request could not be sent (then at once, as /bin/ping ends).
  bool Attempt(int deadline);

 private:
  int fd_ = -1;
  sockaddr_in to_{};
  uint16_t id_ = 0;
};

}  // namespace qor
