#include "metrics/utilisation.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/fatal.h"
#include "base/fixed_text.h"
#include "base/line_reader.h"
#include "base/paths.h"
#include "base/shell.h"

namespace qor {


namespace {

constexpr const char* kFreeCommand = "free";

}  // namespace

int getcpuidle(int64_t* total, int64_t* idle) {
  LineReader reader(kProcStat);
  if (!reader.ok()) return 1;
  char line[512];
  if (!reader.Next(line, sizeof line)) line[0] = '\0';
  ParseProcStatLine(line, total, idle);
  return 0;
}

void ParseProcStatLine(const char* line, int64_t* total, int64_t* idle) {
  char label[32];
  int64_t c[10] = {};
  std::sscanf(line,
              "%31s%" SCNd64 "%" SCNd64 "%" SCNd64 "%" SCNd64 "%" SCNd64 "%" SCNd64 "%" SCNd64
              "%" SCNd64 "%" SCNd64 "%" SCNd64,
              label, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7], &c[8], &c[9]);
  *idle = c[3];
  // guest and guest_nice are already part of user and nice.
  *total = c[0] + c[1] + c[2] + c[3] + c[4] + c[5] + c[6] + c[7];
}

double CpuUtilBetween(int64_t prevTotal, int64_t prevIdle, int64_t total, int64_t idle) {
  int64_t elapsed = total - prevTotal;
  // No time between the samples gives no measurement; it reads as idle rather than 0 / 0.
  if (elapsed <= 0) return 0.0;
  double busy = 1.0 - static_cast<double>(idle - prevIdle) / static_cast<double>(elapsed);
  // The kernel's idle counter is not strictly monotonic, so the ratio can leave [0, 1] slightly.
  return std::clamp(busy, 0.0, 1.0);
}

double MemUtilFromFreeLine(const char* line) {
  char word[64];
  double total = getword(word, sizeof word, line, 1) == 0 ? std::atof(word) : 0.0;
  double used = getword(word, sizeof word, line, 2) == 0 ? std::atof(word) : 0.0;
  // Memory that cannot be measured reads as idle, as a disk that cannot be measured does; words
  // such as "inf", "nan" or a used amount beyond the total come only from a damaged output.
  double util = total > 0.0 ? used / total : 0.0;
  return std::isfinite(util) ? std::clamp(util, 0.0, 1.0) : 0.0;
}

double getmemutil() {
  double util = 0.0;
  int lineNo = 0;
  bool started = RunShell(kFreeCommand, kShellLineMax, [&](char* line) {
    if (++lineNo == 2) util = MemUtilFromFreeLine(line);
  });
  if (!started) FatalCommand(kFreeCommand);
  return util;
}

double getdiskutil(const char* path) {
  struct statvfs fs;
  if (statvfs(path, &fs) != 0) return 0.0;
  double total = static_cast<double>(fs.f_frsize) * static_cast<double>(fs.f_blocks);
  double free = static_cast<double>(fs.f_frsize) * static_cast<double>(fs.f_bfree);
  // Virtual file systems have no blocks at all: nothing can fill them.
  if (total <= 0.0) return 0.0;
  return (total - free) / total;
}

int getword(char* out, size_t size, const char* line, int n) {
  constexpr const char* kSeparators = " \t\n";
  if (size > 0) out[0] = '\0';
  if (line == nullptr || n < 0) return 1;
  const char* p = line;
  for (int i = 0;; ++i) {
    p += std::strspn(p, kSeparators);
    if (*p == '\0') return 1;
    size_t length = std::strcspn(p, kSeparators);
    if (i == n) {
      CopyText(out, size, std::string_view(p, length));
      return 0;
    }
    p += length;
  }
}

}  // namespace qor
