// Wall-clock readings: milliseconds since the epoch for every *mill value, and the local date
// texts of the monitors.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace qor {

// Seconds * 1000 + microseconds / 1000 of gettimeofday.
int64_t GetQorTimeMill();
// Milliseconds of the monotonic clock, for durations: a wall clock set back would shorten them.
int64_t MonotonicMill();
// The same clock in microseconds, for durations that a loopback round trip fits in.
int64_t MonotonicMicros();

// The two clocks as a pass reads them, once, at its start. The heartbeat, the monitors and the
// cycle judge by these values and read no clock themselves, so a test can hand them any instant.
struct Clocks {
  int64_t wallMill = 0;  // GetQorTimeMill: the stamps written into rows, the dates of log lines
  int64_t monoMs = 0;    // MonotonicMill: every silence and duration
};
Clocks ReadClocks();

// Date text forms of MyGetDate.
enum DateForm { kDateTime = 0, kDateStamp = 1, kDateSlashed = 2, kDateMonth = 3 };

// Returns time() and writes the same instant as local date text into text (form 1
// YYYYMMDD_hhmmss, 2 YYYY/MM/DD, 3 YYYYMM, anything else YYYY/MM/DD hh:mm:ss).
time_t MyGetDate(char* text, size_t size, int form);

// The text MyGetDate writes for the instant t (local time).
void FormatQorDate(char* text, size_t size, time_t t, int form);

}  // namespace qor

namespace qor {

// A database timestamp "%Y-%m-%d %H:%M:%S" as local time, in seconds since the epoch, by the zone's
// own daylight-saving rules; 0 for a text that is not such a timestamp. In the hour that a zone's
// clocks go back, the text names two instants: the one nearer to near is taken (the row's reader
// passes its own clock, and a row is written seconds before it is read).
int64_t ParseUpdatedAt(const char* text, int64_t near);

}  // namespace qor
