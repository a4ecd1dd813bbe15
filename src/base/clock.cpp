#include "base/clock.h"

#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

namespace qor {

int64_t GetQorTimeMill() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<int64_t>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

int64_t MonotonicMill() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

int64_t MonotonicMicros() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

Clocks ReadClocks() {
  return {GetQorTimeMill(), MonotonicMill()};
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

time_t MyGetDate(char* text, size_t size, int form) {
  time_t now = time(nullptr);
  FormatQorDate(text, size, now, form);
  return now;
}

}  // namespace qor

namespace qor {

int64_t ParseUpdatedAt(const char* text, int64_t near) {
  if (text == nullptr) return 0;
  struct tm fields = {};
  if (strptime(text, "%Y-%m-%d %H:%M:%S", &fields) == nullptr) return 0;
  // Each of the zone's offsets, standard and daylight saving time, gives a reading; only one that
  // is shown as the same text again is real.
  int64_t best = 0;
  bool found = false;
  for (int dst : {0, 1}) {
    struct tm t = fields;
    t.tm_isdst = dst;
    time_t v = mktime(&t);
    struct tm back;
    if (v == static_cast<time_t>(-1) || localtime_r(&v, &back) == nullptr) continue;
    if (back.tm_year != fields.tm_year || back.tm_mon != fields.tm_mon ||
        back.tm_mday != fields.tm_mday || back.tm_hour != fields.tm_hour ||
        back.tm_min != fields.tm_min || back.tm_sec != fields.tm_sec) {
      continue;
    }
    int64_t at = static_cast<int64_t>(v);
    if (!found || std::llabs(at - near) < std::llabs(best - near)) best = at;
    found = true;
  }
  if (found) return best;
  // A time the clocks skipped when they went forward: the zone's own guess.
  fields.tm_isdst = -1;
  return static_cast<int64_t>(mktime(&fields));
}

}  // namespace qor
