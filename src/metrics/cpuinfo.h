// Processor facts and load: the four /proc/cpuinfo pipelines, the load average and the weighted
// load per processor that steers where new containers go. A pipeline that cannot be started or an
// unreadable /proc/loadavg ends the process (FatalCommand / FatalExit).
#pragma once

#include "base/fixed_text.h"
#include "config/qorconf.h"

namespace qor {

// Length of the model text written into model, 0 when none was found (model then unchanged).
int GetCpuModel(FixedText<128>& model);
// Number of processor packages.
int GetCpus(int* cpus);
// Distinct core ids of one package (unchanged when the pipeline prints nothing).
int GetCpuCores(int* cores);
// Logical processors (unchanged when the pipeline prints nothing).
int getcpuprocs(int* procs);
// Fills model, cpus, cores, phycores and procs of Cpu.
void GetCpuinfo();
// GetCpuinfo, unless the lines of path that its pipelines read are those the facts in Cpu were
// last taken from; then Cpu keeps them.
void RefreshCpuinfo(const char* path = "/proc/cpuinfo");

// One-minute load average from /proc/loadavg; always 1.
int GetCpuLoadavg(float* loadavg);
// The load and the load per processor (0 when cores is 0); always 0.
int GetCpuLoadavgPp(int cores, float* loadavg, float* loadavgpp);

// The weighted load per processor for n containers (own lumo containers already subtracted)
// under the configuration's rates and limits; clustrate is taken as given (GetCpuData cuts it to
// 1 first). Never NaN or infinite.
float WeightLoadPerProc(float loadavgpp, int n, const Cnf& conf);

// Refreshes all of Cpu, including the weighted loadavgpp for this server's containers, of which
// ownLumoContainers (asked only when the count matters) do not count against the limits; always 0.
int GetCpuData(int containers, int (*ownLumoContainers)());

}  // namespace qor
