#include "net/icmp_echo.h"

#include <arpa/inet.h>
#include <linux/icmp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/clock.h"
#include "base/log.h"

namespace qor {

namespace {

constexpr uint8_t kEchoReply = 0;
constexpr uint8_t kEchoRequest = 8;

// A raw socket rather than the unprivileged datagram kind: the daemon runs as root, and a
// datagram ICMP socket needs net.ipv4.ping_group_range to admit the group, which a fresh network
// namespace (and many servers) does not. The raw socket is also what /bin/ping itself uses as
// root, so the packets on the wire stay the same.
int OpenRawSocket() {
  return socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMP);
}

// How the probe opens its socket: the raw socket, unless a test set another. Read by every probe.
EchoSocketOpener opener = OpenRawSocket;
// Set by the first probe that fell back to the ping command, so that it is logged once.
bool toldFallback = false;

// Every attempt of the process takes the next number, so a late reply to an earlier attempt,
// whichever address it was for, never answers a later one. Written and read by every attempt.
uint16_t lastSequence = 0;

void PutBig16(uint8_t* at, uint16_t value) {
  at[0] = static_cast<uint8_t>(value >> 8);
  at[1] = static_cast<uint8_t>(value);
}

uint16_t GetBig16(const uint8_t* at) {
  return static_cast<uint16_t>(at[0] << 8 | at[1]);
}

}  // namespace

uint16_t IcmpChecksum(const uint8_t* data, size_t size) {
  uint32_t sum = 0;
  for (size_t i = 0; i + 1 < size; i += 2) sum += GetBig16(data + i);
  if (size % 2) sum += static_cast<uint32_t>(data[size - 1]) << 8;
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

void BuildEchoRequest(uint8_t (&out)[kEchoRequestSize], uint16_t id, uint16_t seq,
                      const timeval& sent) {
  out[0] = kEchoRequest;
  out[1] = 0;
  PutBig16(out + 2, 0);
  PutBig16(out + 4, id);
  PutBig16(out + 6, seq);
  for (size_t i = 8; i < kEchoRequestSize; ++i) out[i] = static_cast<uint8_t>(i - 8);
  std::memcpy(out + 8, &sent, sizeof sent);
  PutBig16(out + 2, IcmpChecksum(out, kEchoRequestSize));
}

bool IsEchoReply(const uint8_t* packet, size_t size, in_addr_t asked, uint16_t id, uint16_t seq) {
  if (size < 20 || packet[0] >> 4 != 4) return false;
  size_t header = static_cast<size_t>(packet[0] & 0x0f) * 4;
  if (header < 20 || size < header + 8) return false;
  const uint8_t* icmp = packet + header;
  return std::memcmp(packet + 12, &asked, sizeof asked) == 0 && icmp[0] == kEchoReply &&
         GetBig16(icmp + 4) == id && GetBig16(icmp + 6) == seq;
}

void SetEchoSocketOpener(EchoSocketOpener open) {
  opener = open ? open : OpenRawSocket;
}

EchoProbe::EchoProbe(const char* address) {
  // A name would need a resolver call, which has no bound of its own: /bin/ping resolves it, as
  // it always did.
  if (inet_pton(AF_INET, address, &to_.sin_addr) != 1) return;
  to_.sin_family = AF_INET;
  fd_ = opener();
  if (fd_ < 0) {
    if (!toldFallback) {
      LogNotice("ping runs /bin/ping: no ICMP socket (%s)", std::strerror(errno));
    }
    toldFallback = true;
    return;
  }
  id_ = static_cast<uint16_t>(getpid());
  // The socket gets every ICMP packet the host receives; only echo replies wake this process.
  icmp_filter filter{~(1U << ICMP_ECHOREPLY)};
  setsockopt(fd_, SOL_RAW, ICMP_FILTER, &filter, sizeof filter);
}

EchoProbe::~EchoProbe() {
  if (fd_ >= 0) close(fd_);
}

bool EchoProbe::Attempt(int deadline) {
  uint16_t seq = ++lastSequence;
  timeval now{};
  gettimeofday(&now, nullptr);
  uint8_t request[kEchoRequestSize];
  BuildEchoRequest(request, id_, seq, now);
  int64_t end = MonotonicMill() + static_cast<int64_t>(deadline) * 1000;
  ssize_t sent;
  do {
    sent = sendto(fd_, request, sizeof request, 0, reinterpret_cast<const sockaddr*>(&to_),
                  sizeof to_);
  } while (sent < 0 && errno == EINTR && MonotonicMill() < end);
  if (sent != static_cast<ssize_t>(sizeof request)) return false;
  for (;;) {
    int64_t left = end - MonotonicMill();
    if (left <= 0) return false;
    pollfd p{fd_, POLLIN, 0};
    int ready = poll(&p, 1, static_cast<int>(left));
    // A poll that fails for another reason than a signal would fail again at once: the attempt
    // ends there instead of spinning until its deadline.
    if (ready < 0 && errno != EINTR) return false;
    if (ready <= 0) continue;
    uint8_t packet[512];
    ssize_t n;
    // Each packet read is discarded unless it is the answer; an error the socket reports
    // (an ICMP error for an earlier request) is taken by the read and gone.
    while ((n = recv(fd_, packet, sizeof packet, MSG_DONTWAIT)) > 0) {
      if (IsEchoReply(packet, static_cast<size_t>(n), to_.sin_addr.s_addr, id_, seq)) return true;
    }
  }
}

}  // namespace qor
