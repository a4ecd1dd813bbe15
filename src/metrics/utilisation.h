// Processor, memory and disk utilisation as fractions from 0 to 1, measured by the cycle's
// configuration re-check into the node's own row and written by the full row update. No result is
// ever NaN or infinite.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qor {

// Total and idle jiffies from the first line of /proc/stat; 1 when it cannot be opened.
int GetCpuIdle(int64_t* total, int64_t* idle);
// Total (user to steal, guests excluded) and idle of a /proc/stat "cpu" line; missing counters
// count as 0.
void ParseProcStatLine(const char* line, int64_t* total, int64_t* idle);
// 1 - didle / dtotal between two samples; 0.0 when the total did not move.
double CpuUtilBetween(int64_t prevTotal, int64_t prevIdle, int64_t total, int64_t idle);
// used / total as `free` (procps 4) shows them on its Mem: line, computed from /proc/meminfo as
// free computes them; 0.0 when the file cannot be read.
double GetMemUtil();
// (total - free) / total of the file system holding path; 0.0 when it cannot be measured.
double GetDiskUtil(const char* path);

// Word n (from 0) of line, words separated by blanks, tabs and newlines: 0 with the word, or 1
// with the empty text. out is cut at size - 1 characters.
int GetWord(char* out, size_t size, const char* line, int n);

}  // namespace qor
