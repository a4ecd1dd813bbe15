#include "config/processors.h"

namespace qor {

CpuRecord Cpu;

}  // namespace qor
