// The processor record of this host. The host metrics measure it; the configuration derives its
// container limits from it and may replace the core count from the configured processor sets, so
// it lives here, below both.
#pragma once

#include "base/fixed_text.h"

namespace qor {

struct CpuRecord {
  FixedText<128> model;  // processor model name
  int cpus = 0;          // processor packages
  int phycores = 0;      // physical cores of the machine (equal to cores)
  int cores = 0;         // cores per package x packages, or the configured processor count
  int procs = 0;         // logical processors
  float loadavg = 0;     // one-minute load average
  float loadavgpp = 0;   // weighted load per processor
};

// This host's processor facts. Process-wide: written by GetCpuinfo at start-up, the configured
// processor sets and each heartbeat's load figures; read by the heartbeat into the own row.
extern CpuRecord Cpu;

}  // namespace qor
