// The configuration file: any bytes, read as every command and daemon cycle reads the real one,
// then judged against this server's address.
#include <cstdlib>

#include "config/cpuset.h"
#include "config/processors.h"
#include "config/qorconf.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace qor;
  static fuzz::BytesFile file;
  // Every input starts from the state a fresh process has when it first reads the file.
  cnf = Cnf{};
  Cluster = 0;
  ClustRole = kRoleOther;
  CurrentSvr = "10.1.0.1";
  Cpu = CpuRecord{};
  Cpu.cores = 8;
  Cpu.procs = 16;
  Cnffile.set(file.Write(data, size));
  if (GetQorconf() != 0) std::abort();
  if (!(cnf.clustrate >= 0.0f && cnf.clustrate <= 1.0f)) std::abort();
  if (cnf.Cpusetnum < 0 || cnf.Cpusetnum > kCpusetSlots) std::abort();
  FixedText<128> clusterid, role;
  CheckClustConf(CurrentSvr.c_str(), clusterid, role);
  return 0;
}
