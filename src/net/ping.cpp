#include "net/ping.h"

#include <cstring>

#include "base/fixed_text.h"
#include "base/log.h"
#include "base/shell.h"
#include "net/icmp_echo.h"

namespace qor {

namespace {

// Addresses that did not answer since the cycle began (ForgetSilentAddresses begins it). A silent
// server costs three seconds a ping, and a cycle asks for the master and the slave several times
// over; once per cycle is enough to know it is gone, and keeps a lone slave's cycle short.
// Written by Ping, emptied by ForgetSilentAddresses at the top of each cycle.
FixedText<256> silent[8];
int silentCount = 0;

bool KnownSilent(const char* address) {
  for (int i = 0; i < silentCount; ++i) {
    if (silent[i] == address) return true;
  }
  return false;
}

void NoteSilent(const char* address) {
  if (silentCount < static_cast<int>(sizeof silent / sizeof silent[0])) {
    silent[silentCount++].set(address);
  }
}

// One run of the ping command: answered when it printed a reply line.
bool PingCommandAnswered(const char* command) {
  bool answered = false;
  RunShell(command, 8192, [&](char* line) {
    if (std::strlen(line) > 8 && std::strncmp(line, "64 bytes", 8) == 0) answered = true;
  });
  return answered;
}

}  // namespace

void ForgetSilentAddresses() {
  silentCount = 0;
}

int Ping(const char* address, int attempts) {
  // The address stands unquoted on a shell command line: anything but a plain address or host
  // name is refused here, once per call, and counts as not answering; so is one too long for the
  // command, which cut would name another host.
  FixedText<256> command;
  if (!IsShellSafeWord(address) ||
      !command.format("%s %d %s", "/bin/ping -c 1 -w", kPingDeadlineSeconds, address)) {
    LogError("ping refused address (%.64s)", address ? address : "");
    return 1;
  }
  if (KnownSilent(address)) return 1;
  // The requests go out from this process, as /bin/ping would send them, without starting a
  // process for each; /bin/ping runs only where that cannot be done.
  EchoProbe probe(address);
  for (int i = 0; i < attempts; ++i) {
    if (probe.usable() ? probe.Attempt(kPingDeadlineSeconds) : PingCommandAnswered(command.c_str()))
      return 0;
  }
  NoteSilent(address);
  return 1;
}

}  // namespace qor
