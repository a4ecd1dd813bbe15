#include "base/log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

namespace qor {

int Xmode = 0;

void LogNotice(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  vsyslog(LOG_NOTICE, fmt, ap);
  va_end(ap);
}

void LogError(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  vsyslog(LOG_ERR, fmt, ap);
  va_end(ap);
}

void Trace(const char* fmt, ...) {
  if (!Xmode) return;
  va_list ap;
  va_start(ap, fmt);
  std::vprintf(fmt, ap);
  va_end(ap);
}

void CloseLog() {
  closelog();
}

void OpenDaemonLog() {
  openlog("qorclustd", LOG_PID, LOG_DAEMON);
}

void OpenDaemonLogAs(int daemonPid) {
  // syslog keeps the pointer: the text must outlive every later line. Written once per process.
  static char ident[32];
  std::snprintf(ident, sizeof ident, "qorclustd[%d]", daemonPid);
  closelog();
  openlog(ident, 0, LOG_DAEMON);
}

}  // namespace qor
