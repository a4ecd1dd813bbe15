// Ping, the reachability test of the whole program, and its memory of the addresses that did not
// answer in this cycle.
#pragma once

namespace qor {

// Seconds an echo request waits for its reply, and the requests after which an address counts as
// not answering: every reachability test of the program asks so, -ping alone names its own tries.
constexpr int kPingDeadlineSeconds = 1;
constexpr int kPingTries = 3;

// 0 when address answered one echo request within attempts tries of kPingDeadlineSeconds each.
// The requests leave from this process (net/icmp_echo.h); /bin/ping runs instead for host names
// and IPv6 addresses, and where no ICMP socket can be opened. An address that is not a plain
// address or host name, or too long for the command, is never tried: logged, and 1.
int Ping(const char* address, int attempts = kPingTries);
// Forgets which addresses did not answer ping: they are asked again.
void ForgetSilentAddresses();

}  // namespace qor
