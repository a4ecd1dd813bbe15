// The times in which one database did not answer this process, kept so that a monitor counts a
// row's silence only over time in which the database could have taken that row's writes. Pure:
// the caller gives every clock reading; one instance per database, single-threaded.
#pragma once

#include <cstdint>

namespace qor {

struct Outages {
  // One stretch without an answer, in milliseconds since the epoch: from the start of the call
  // that failed to the database's first answer after it (to is 0 while it lasts).
  struct Span {
    int64_t id;
    int64_t from;
    int64_t to;
  };
  // Stretches kept: the latest ones; a row older than all of them has long been judged.
  static constexpr int kSpans = 32;

  // A call on the database that began at startMs answered (or failed) at nowMs. The first failure
  // after an answer opens a stretch at the failing call's start: before it the database answered
  // as far as this process knows, and the other servers' rows aged at most a cycle more, far
  // within the 15 s. Before the first answer of the process, a failure reaches back to the
  // beginning of time: how long the database was gone before is unknown.
  void Note(bool answered, int64_t nowMs, int64_t startMs);
  // Whole seconds, rounded up, of [from, to] (seconds since the epoch) in which the database did
  // not answer; *latest (when given) becomes the id of the latest stretch that overlaps, or 0.
  int64_t Within(int64_t from, int64_t to, int64_t* latest = nullptr) const;

  Span spans[kSpans] = {};
  int count = 0;  // spans[0 .. count-1], oldest first
  int64_t lastAnswerMs = 0;
  bool failing = false;
  int64_t opened = 0;  // stretches opened so far; the latest one's id
};

}  // namespace qor
