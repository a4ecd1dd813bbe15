#include "base/clock.h"

#include <sys/time.h>

#include <cstdio>

namespace qor {

int64_t Timemill = 0;

int64_t getqortimemill() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<int64_t>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

int64_t MonotonicMill() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

namespace {

// "0%d" up to 9 and "%2d" above, as every date field has always been printed.
void TwoDigits(char (&out)[8], int v) {
  std::snprintf(out, sizeof out, v <= 9 ? "0%d" : "%2d", v);
}

}  // namespace

void FormatQorDate(char* text, size_t size, time_t t, int form) {
  struct tm tm;
  localtime_r(&t, &tm);
  char mo[8], dd[8], hh[8], mi[8], ss[8];
  TwoDigits(mo, tm.tm_mon + 1);
  TwoDigits(dd, tm.tm_mday);
  TwoDigits(hh, tm.tm_hour);
  TwoDigits(mi, tm.tm_min);
  TwoDigits(ss, tm.tm_sec);
  int year = tm.tm_year + 1900;
  switch (form) {
    case kDateStamp:
      std::snprintf(text, size, "%4d%s%s_%s%s%s", year, mo, dd, hh, mi, ss);
      break;
    case kDateSlashed:
      std::snprintf(text, size, "%4d/%s/%s", year, mo, dd);
      break;
    case kDateMonth:
      std::snprintf(text, size, "%4d%s", year, mo);
      break;
    default:
      std::snprintf(text, size, "%4d/%s/%s %s:%s:%s", year, mo, dd, hh, mi, ss);
      break;
  }
}

time_t mygetdate(char* text, size_t size, int form) {
  time_t now = time(nullptr);
  FormatQorDate(text, size, now, form);
  return now;
}

}  // namespace qor

namespace qor {

int64_t ParseUpdatedAt(const char* text) {
  if (text == nullptr) return 0;
  struct tm tm = {};
  if (strptime(text, "%Y-%m-%d %H:%M:%S", &tm) == nullptr) return 0;
  tm.tm_isdst = 0;
  return static_cast<int64_t>(mktime(&tm));
}

}  // namespace qor
