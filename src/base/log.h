// Logging: syslog notices and errors, and the "_x" debug trace on standard output. The command
// side logs with the logger's defaults (no openlog); the daemon opens its own identity.
#pragma once

namespace qor {

// 1 when the option word carried the debug suffix: trace lines go to standard output.
// Process-wide: written once at start-up, read by Trace.
extern int Xmode;

void LogNotice(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void LogError(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
// Printed only in debug mode; every trace text begins with "_x" (or "_" for a few old ones).
void Trace(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void CloseLog();
// The daemon's own identity: "qorclustd" with the process id, facility daemon.
void OpenDaemonLog();
// The same lines for a helper process of the daemon (its slow pass): they name the daemon's pid,
// so the log reads as one daemon's, whichever process wrote the line.
void OpenDaemonLogAs(int daemonPid);

}  // namespace qor
