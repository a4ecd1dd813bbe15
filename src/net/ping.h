// Ping, the reachability test of the whole program, and its memory of the addresses that did not
// answer in this cycle.
#pragma once

namespace qor {

// 0 when address answered one echo request within attempts tries of deadline seconds each.
// The requests leave from this process (net/icmp_echo.h); /bin/ping runs instead for host names
// and IPv6 addresses, and where no ICMP socket can be opened. An address that is not a plain
// address or host name, or too long for the command, is never tried: logged, and 1.
int Ping(const char* address, int deadline, int attempts);
// Forgets which addresses did not answer ping: they are asked again.
void ForgetSilentAddresses();

}  // namespace qor
