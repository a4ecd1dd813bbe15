#include "metrics/utilisation.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/fixed_text.h"
#include "base/line_reader.h"
#include "base/paths.h"

namespace qor {

namespace {

// The /proc/meminfo figures free's Mem: line is made of, in kB; available 0 where the kernel
// gives none.
struct Meminfo {
  int64_t total = 0, free = 0, available = 0;
};

double MemUtilOf(const Meminfo& m) {
  // free's own rules (procps 4.0.2): kernels before 3.14 give no available figure, and a
  // container's view may give one beyond its total; both fall back to the free memory.
  int64_t available = m.available != 0 ? m.available : m.free;
  if (available > m.total) available = m.free;
  int64_t used = m.total - available;
  if (used < 0) used = m.total - m.free;
  // Memory that cannot be measured reads as idle, as a disk that cannot be measured does.
  if (m.total <= 0) return 0.0;
  return std::clamp(static_cast<double>(used) / static_cast<double>(m.total), 0.0, 1.0);
}

}  // namespace

int GetCpuIdle(int64_t* total, int64_t* idle) {
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

double GetMemUtil() {
  // The figures `free` prints, read where free reads them: no process every re-check.
  LineReader reader(kProcMeminfo);
  Meminfo m;
  char line[256], key[32];
  long long value = 0;
  while (reader.ok() && reader.Next(line, sizeof line)) {
    if (std::sscanf(line, "%31[^:]: %lld", key, &value) != 2) continue;
    if (std::strcmp(key, "MemTotal") == 0) m.total = value;
    if (std::strcmp(key, "MemFree") == 0) m.free = value;
    if (std::strcmp(key, "MemAvailable") == 0) m.available = value;
  }
  return MemUtilOf(m);
}

double GetDiskUtil(const char* path) {
  struct statvfs fs;
  if (statvfs(path, &fs) != 0) return 0.0;
  double total = static_cast<double>(fs.f_frsize) * static_cast<double>(fs.f_blocks);
  double free = static_cast<double>(fs.f_frsize) * static_cast<double>(fs.f_bfree);
  // Virtual file systems have no blocks at all: nothing can fill them.
  if (total <= 0.0) return 0.0;
  return (total - free) / total;
}

int GetWord(char* out, size_t size, const char* line, int n) {
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
