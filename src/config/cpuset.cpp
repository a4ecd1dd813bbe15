#include "config/cpuset.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "base/log.h"
#include "config/processors.h"
#include "config/strutil.h"

namespace qor {

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

void SetPair(CpusetText* sets, const char* a, const char* b) {
  sets[0].set(a);
  sets[1].set(b);
}

// Collects the sets of the list ("0-3,4-7") or group ("[0,1][2,3]") form into cpusets. A set
// that would not fit its 127 characters, or a 13th set, makes the processor-set text malformed: the
// slots stay bounded and the caller sees 1.
int CollectSets(CpusetText* cpusets, const char* sets, bool groups, int* count) {
  FixedText<128> current;
  // The group form's walk starts past its opening "[", so both forms start inside a set.
  bool inside = true;
  const char* p = groups ? sets + 1 : sets;
  for (; *p; ++p) {
    char c = *p;
    if (groups && !inside) {
      if (c == '[') inside = true;
      continue;
    }
    bool closes = groups ? c == ']' : c == ',';
    if (closes) {
      if (*count >= kCpusetSlots) return 1;
      cpusets[*count].set(current);
      if (groups)
        Trace("_xgetcpuset(2): j=%d cpusets[%d]=%s\n", static_cast<int>(p - sets), *count,
              current.c_str());
      ++*count;
      current.clear();
      inside = !groups;
    } else if (c == ' ') {
      continue;
    } else if (IsDigit(c) || (groups ? c == ',' : c == '-')) {
      char one[2] = {c, '\0'};
      if (!current.append(one)) return 1;
    } else {
      return 1;
    }
  }
  if (groups) {
    // Whatever followed the last group fills the next slot uncounted, as it always has.
    if (*count < kCpusetSlots) cpusets[*count].set(current);
  } else {
    if (*count >= kCpusetSlots) return 1;
    cpusets[(*count)++].set(current);
  }
  return 0;
}

}  // namespace

int GetCpuset(CpusetText* cpusets, const char* sets, int* cpusetnum, int proccount) {
  Trace("_xgetcpuset(1): cpuset=%s *cpusetnum=%d proccount=%d\n", sets, *cpusetnum, proccount);
  if (sets == nullptr || *sets == '\0') {
    *cpusetnum = 0;
    return 1;
  }
  if (!std::strcmp(sets, "0") || !std::strcmp(sets, "all") || !std::strcmp(sets, "auto")) {
    *cpusetnum = 0;
    return 0;
  }
  if (!std::strcmp(sets, "ext36")) {
    SetPair(cpusets, "0-17,36-53", "18-35,54-71");
    *cpusetnum = 2;
    return 0;
  }
  if (!std::strcmp(sets, "ext44")) {
    SetPair(cpusets, "0-21,44-65", "22-43,66-87");
    *cpusetnum = 2;
    return 0;
  }
  bool listForm = IsDigit(sets[0]);
  if (!listForm && sets[0] != '[') return 1;
  int count = 0;
  if (CollectSets(cpusets, sets, !listForm, &count) != 0) return 1;
  for (int i = 0; i < count; ++i) Trace("_xgetcpuset(3): cpusets[%d]=%s\n", i, cpusets[i].c_str());

  int last = proccount - 1;
  for (int i = 0; i < count; ++i) {
    FixedText<128> work, before, after;
    work.set(cpusets[i]);
    GetVal2(before, after, work.data(), '-');
    int first = std::atoi(before.c_str());
    int end = std::atoi(after.c_str());
    Trace("_xgetcpuset(4): i=%d p1=%d p2=%d p3=%d\n", i, first, end, last);
    if (last < first && listForm) {
      cpusets[i].clear();
      *cpusetnum = i + 1;
      Trace("_xgetcpuset(5): cpuset=%s *cpusetnum=%d proccount=%d\n", sets, *cpusetnum, proccount);
      return 0;
    }
    if (last <= end) {
      cpusets[i].format("%d-%d", first, last);
      if (i + 1 < kCpusetSlots) cpusets[i + 1].clear();
      *cpusetnum = i + 1;
      Trace("_xgetcpuset(6): cpuset=%s *cpusetnum=%d proccount=%d\n", sets, *cpusetnum, proccount);
      return 0;
    }
  }
  *cpusetnum = count;
  Trace("_xgetcpuset(6): cpuset=%s *cpusetnum=%d proccount=%d\n", sets, *cpusetnum, proccount);
  return 0;
}

int CharSplit(char* text, const char* delimiters, char** parts, int maxParts) {
  int n = 0;
  char* p = text;
  while (*p && n < maxParts) {
    while (*p && std::strchr(delimiters, *p)) *p++ = '\0';
    if (!*p) break;
    parts[n++] = p;
    while (*p && !std::strchr(delimiters, *p)) ++p;
    // Ends the piece here: the last piece stored must not run on over the unsplit rest.
    if (*p) *p++ = '\0';
  }
  return n;
}

namespace {

// The byte the platform's echo writes for the escape at s (just past the backslash); sets *len to
// the characters consumed, returns -1 for \c (output stops) and -2 for no escape at all.
int EchoEscape(const char* s, int* len) {
  static const char kPlain[] = "abefnrtv\\";
  static const char kByte[] = "\a\b\033\f\n\r\t\v\\";
  if (*s == 'c') {
    *len = 1;
    return -1;
  }
  if (const char* k = std::strchr(kPlain, *s); *s && k) {
    *len = 1;
    return static_cast<unsigned char>(kByte[k - kPlain]);
  }
  if (*s >= '0' && *s <= '7') {
    // \0 takes up to three more octal digits, \1 to \7 up to two more.
    int i = *s == '0' ? 1 : 0;
    int max = i + 3;
    int value = 0;
    for (; i < max && s[i] >= '0' && s[i] <= '7'; ++i) value = value * 8 + (s[i] - '0');
    *len = i;
    return value & 0xff;
  }
  return -2;
}

}  // namespace

// The count has always come from the pipeline
//   echo '<text>' | sed -e 's@<d>@<d>\n@g' | grep -c '<d>' | tr -d '\n'
// run by /bin/sh: every delimiter that echo writes ends a line, and the lines holding one are
// counted. It is computed here without a process, giving the pipeline's result: echo's backslash
// escapes are applied (\c ends the output, octal escapes can write the delimiter), a lone "-n" is
// echo's option and prints nothing, and an odd number of single quotes is a shell syntax error
// (no output, 0). Text between an even number of quotes is counted as written: the shell would
// have run it as commands, which is exactly what this must not do.
int CharNum(const char* text, char delimiter) {
  if (text == nullptr) return 0;
  int quotes = 0;
  for (const char* p = text; *p; ++p) quotes += *p == '\'';
  if (quotes % 2 != 0) return 0;
  if (!std::strcmp(text, "-n")) return 0;
  int count = 0;
  for (const char* p = text; *p; ++p) {
    int c = static_cast<unsigned char>(*p);
    if (c == '\'') continue;
    if (c == '\\') {
      int len = 0;
      int out = EchoEscape(p + 1, &len);
      if (out == -1) break;
      if (out >= 0) {
        c = out;
        p += len;
      }
    }
    if (c == static_cast<unsigned char>(delimiter)) ++count;
  }
  return count;
}

int CoreInt(const char* range) {
  FixedText<128> work;
  work.set(range);
  char* parts[kMaxSplitParts];
  int n = CharSplit(work.data(), "-", parts, kMaxSplitParts);
  // A piece without a second number names one processor (the 9 of 0-7,9), so it counts 1.
  if (n < 2) return 1;
  return ClampToInt(static_cast<double>(std::atoi(parts[1])) - std::atoi(parts[0]) + 1);
}

void CoresFromCpuset(const char* cpuset) {
  FixedText<64> text, text2;
  text.set(cpuset);
  text2.set(cpuset);
  Trace("_cnfcore(1):cpusetchar=%s\n", text.c_str());
  bool commas = std::strchr(text.c_str(), ',') != nullptr;
  bool dashes = std::strchr(text.c_str(), '-') != nullptr;
  if (!commas && !dashes) return;
  char* parts[kMaxSplitParts];
  int pieces = 0;
  if (commas) {
    int split = CharSplit(text.data(), ",", parts, kMaxSplitParts);
    pieces = CharNum(text2.c_str(), ',') + 1;
    // Empty pieces (",,") are not stored by the split; only stored pieces are summed.
    if (pieces > split) pieces = split;
  }
  long long total = 0;
  if (dashes) {
    if (commas) {
      Trace("_cnfcore(2):arrlen=%d coreflg=%d\n", pieces, 1);
      for (int i = 0; i < pieces; ++i) total += CoreInt(parts[i]);
    } else {
      Trace("_cnfcore(3):cpusetchar2=%s\n", text2.c_str());
      total = CoreInt(text2.c_str());
    }
  }
  if (total != 0) Cpu.cores = ClampToInt(static_cast<double>(total));
  Trace("_cnfcore(4):Cpu.cores=%d corecpu=%d\n", Cpu.cores, ClampToInt(static_cast<double>(total)));
}

}  // namespace qor
