// Processor-set texts (qor_cpuset): the first two bytes give the logical processor count and the
// delimiter counted, the rest is the text.
#include <cstdlib>
#include <string>

#include "config/cpuset.h"
#include "config/processors.h"
#include "config/qorconf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace qor;
  if (size < 2) return 0;
  const int procs = data[0] + 1;
  const char delimiter = static_cast<char>(data[1]);
  const std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);

  CpusetText sets[kCpusetSlots];
  int count = -1;
  int rc = GetCpuset(sets, text.c_str(), &count, procs);
  if (rc != 0 && rc != 1) std::abort();
  if (rc == 0 && (count < 0 || count > kCpusetSlots)) std::abort();

  cnf.cpuset.set(text.c_str());
  Cpu.cores = procs;
  CnfCore();
  CharNum(text.c_str(), delimiter);
  return 0;
}
