#include "store/outages.h"

#include <algorithm>

namespace qor {

void Outages::Note(bool answered, int64_t nowMs, int64_t startMs) {
  if (answered) {
    lastAnswerMs = nowMs;
    if (failing) spans[count - 1].to = nowMs;
    failing = false;
    return;
  }
  if (failing) return;
  failing = true;
  if (count == kSpans) {
    std::copy(spans + 1, spans + kSpans, spans);
    --count;
  }
  spans[count++] = Span{++opened, lastAnswerMs == 0 ? 0 : std::max(lastAnswerMs, startMs), 0};
}

int64_t Outages::Within(int64_t from, int64_t to, int64_t* latest) const {
  const int64_t lo = from * 1000, hi = to * 1000;
  int64_t ms = 0, last = 0;
  for (int i = 0; i < count; ++i) {
    int64_t a = std::max(spans[i].from, lo);
    int64_t b = std::min(spans[i].to == 0 ? hi : spans[i].to, hi);
    if (b <= a) continue;
    ms += b - a;
    last = spans[i].id;
  }
  if (latest != nullptr) *latest = last;
  return (ms + 999) / 1000;
}

}  // namespace qor
