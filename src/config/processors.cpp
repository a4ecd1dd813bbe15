#include "config/processors.h"

namespace qor {

CpuRecord Cpu;
double CpuUtil = 0.0;
double MemUtil = 0.0;
double DiskUtil = 0.0;

}  // namespace qor
