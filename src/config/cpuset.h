// Processor sets: turns the configured qor_cpuset text into the list of sets and, for range
// texts, the processor count that replaces the detected core count.
#pragma once

#include <climits>

#include "base/fixed_text.h"

namespace qor {

constexpr int kCpusetSlots = 12;
using CpusetText = FixedText<128>;

// 0 when sets was understood, 1 when it is empty or malformed. proccount: logical processors.
int GetCpuset(CpusetText* cpusets, const char* sets, int* cpusetnum, int proccount);

// Recomputes Cpu.cores from cnf.cpuset when it names ranges.
// Sets Cpu.cores to the number of processors cpuset names ("0-7,16-23" gives 16); a set
// without ranges or lists leaves it.
void CoresFromCpuset(const char* cpuset);

// Size b - a + 1 of a range a-b; a piece naming a single processor counts 1.
int CoreInt(const char* range);

// Splits text in place at any of the delimiter characters, skipping empty pieces; stores at most
// maxParts pieces and returns how many it stored.
int CharSplit(char* text, const char* delimiters, char** parts, int maxParts);
constexpr int kMaxSplitParts = 128;

// Processor counts and the limits derived from them come from configured text, so they are
// computed wide and held to int here instead of overflowing; NaN gives 0.
inline int ClampToInt(double v) {
  if (v != v) return 0;
  if (v >= static_cast<double>(INT_MAX)) return INT_MAX;
  if (v <= static_cast<double>(INT_MIN)) return INT_MIN;
  return static_cast<int>(v);
}

// Number of occurrences of delimiter in text, as the platform's shell count has always given it.
int CharNum(const char* text, char delimiter);

}  // namespace qor
