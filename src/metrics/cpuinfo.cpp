#include "metrics/cpuinfo.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "base/fatal.h"
#include "base/log.h"
#include "base/shell.h"
#include "config/processors.h"
#include "config/strutil.h"

namespace qor {

namespace {

// The program has always read these pipelines in pieces of at most 127 characters.
constexpr size_t kCpuinfoLineMax = 128;

constexpr const char* kModelCommand = "grep \"model name\" /proc/cpuinfo";
constexpr const char* kPackagesCommand = "grep \"physical id\" /proc/cpuinfo | sort | uniq";
constexpr const char* kCoresCommand = "grep \"core id\" /proc/cpuinfo | sort | uniq | wc -l";
constexpr const char* kProcsCommand = "grep \"processor\" /proc/cpuinfo | wc -l";

// Calls f for every output line with its last character (the newline) removed. Without these
// facts the configuration cannot derive its limits, so a pipeline that does not start is fatal.
template <class F>
void RunCpuinfo(const char* command, F&& f) {
  bool started = RunShell(command, kCpuinfoLineMax, [&f](char* line) {
    ChopLast(line);
    f(line);
  });
  if (!started) FatalCommand(command);
}

// The text between the first and the second colon (cut there in place); nullptr without a colon.
char* SecondPiece(char* line) {
  char* piece = std::strchr(line, ':');
  if (piece == nullptr) return nullptr;
  ++piece;
  char* end = std::strchr(piece, ':');
  if (end != nullptr) *end = '\0';
  return piece;
}

// The integer on the first output line; value stays as it was when there is no line.
int FirstLineInt(const char* command, int* value) {
  bool first = true;
  RunCpuinfo(command, [&](char* line) {
    if (first) *value = std::atoi(line);
    first = false;
  });
  return *value;
}

// The lines of a cpuinfo file that the four pipelines read (those their greps match), whole and
// in order: the facts are a function of these lines alone. Capped, so that a runaway file costs
// a bounded read; a capped text never equals a full one taken before.
std::string FactLines(const char* path) {
  constexpr size_t kMaxText = 4 << 20;
  std::ifstream in(path);
  std::string lines, line;
  while (lines.size() < kMaxText && std::getline(in, line)) {
    for (const char* word : {"model name", "physical id", "core id", "processor"}) {
      if (line.find(word) != std::string::npos) {
        lines += line;
        lines += '\n';
        break;
      }
    }
  }
  return lines;
}

}  // namespace

int GetCpuModel(FixedText<128>& model) {
  int length = 0;
  bool first = true;
  RunCpuinfo(kModelCommand, [&](char* line) {
    if (!first) return;
    first = false;
    char* text = SecondPiece(line);
    if (text == nullptr) return;
    StrTrim(text);
    // A blank model is no model: keep what was known rather than report an empty name.
    if (*text == '\0') return;
    model.set(text);
    length = static_cast<int>(model.size());
  });
  return length;
}

int GetCpus(int* cpus) {
  int packages = 0;
  RunCpuinfo(kPackagesCommand, [&packages](char* line) {
    const char* id = SecondPiece(line);
    if (id != nullptr && *id != '\0') ++packages;
  });
  *cpus = packages;
  return packages;
}

int GetCpuCores(int* cores) {
  return FirstLineInt(kCoresCommand, cores);
}

int getcpuprocs(int* procs) {
  return FirstLineInt(kProcsCommand, procs);
}

namespace {

// The lines the facts in Cpu were taken from; empty before the first time. Written by GetCpuinfo
// and RefreshCpuinfo, read by RefreshCpuinfo to run the pipelines again only on a change.
std::string source;

void TraceFacts() {
  Trace("_xgetcpuinfo(1): model=%s cpus=%d cores=%d procs=%d\n", Cpu.model.c_str(), Cpu.cpus,
        Cpu.cores, Cpu.procs);
}

}  // namespace

void GetCpuinfo() {
  source = FactLines("/proc/cpuinfo");
  GetCpuModel(Cpu.model);
  GetCpus(&Cpu.cpus);
  GetCpuCores(&Cpu.cores);
  // Core ids repeat in every package, so the distinct ids count the cores of one package.
  Cpu.cores *= Cpu.cpus;
  Cpu.phycores = Cpu.cores;
  getcpuprocs(&Cpu.procs);
  TraceFacts();
}

void RefreshCpuinfo(const char* path) {
  // Every heartbeat asks for the facts, which change only when processors are added or taken
  // away. Four pipelines are about fourteen processes every two seconds on every server; they
  // run again only when the lines they read differ from those of the last run (at start-up, the
  // command's own).
  std::string now = FactLines(path);
  if (!now.empty() && now == source) {
    TraceFacts();
    return;
  }
  GetCpuinfo();
  source = now;
}

}  // namespace qor
