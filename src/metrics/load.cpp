#include <cmath>
#include <cstdlib>

#include "base/fatal.h"
#include "base/line_reader.h"
#include "base/log.h"
#include "base/paths.h"
#include "config/processors.h"
#include "config/qorconf.h"
#include "metrics/cpuinfo.h"
#include "metrics/utilisation.h"

namespace qor {

int GetCpuLoadavg(float* loadavg) {
  LineReader reader(kProcLoadavg);
  // Without the load the node cannot describe itself; the program has always stopped here.
  if (!reader.ok()) FatalExit();
  float load = 0.0f;
  char line[128];
  char word[64];
  while (reader.Next(line, sizeof line)) {
    if (GetWord(word, sizeof word, line, 0) == 0) {
      load = static_cast<float>(std::atof(word));
      break;
    }
  }
  *loadavg = load;
  return 1;
}

int GetCpuLoadavgPp(int cores, float* loadavg, float* loadavgpp) {
  GetCpuLoadavg(loadavg);
  *loadavgpp = cores != 0 ? *loadavg / static_cast<float>(cores) : 0.0f;
  return 0;
}

float WeightLoadPerProc(float loadavgpp, int n, const Cnf& conf) {
  // A rate of 0 (or less) means "take no more containers": the server reports itself full.
  if (conf.clustrate <= 0.0f) return conf.maxloadpp;
  // Without limit rates the load is reported as measured, not even divided by clustrate.
  if (conf.limitratelo == 0.0f && conf.limitratehi == 0.0f && conf.limitend == 0.0f) {
    return loadavgpp;
  }
  float rate;
  if (n < conf.maxlimitlo) {
    rate = 1.0f;
  } else if (n < conf.maxlimit) {
    rate = conf.limitratelo;
  } else if (n < conf.maxlimithi) {
    rate = conf.limitratehi;
  } else {
    return conf.maxloadpp;
  }
  // A zero limit rate stops new containers in its band like clustrate 0, instead of dividing by 0.
  if (rate <= 0.0f) return conf.maxloadpp;
  float weighted = loadavgpp / conf.clustrate / rate;
  // A NaN rate read from the file must not make the server look idle to the target choice.
  return std::isfinite(weighted) ? weighted : conf.maxloadpp;
}

int GetCpuData(int containers, int (*ownLumoContainers)()) {
  RefreshCpuinfo();
  GetCpuLoadavgPp(Cpu.phycores, &Cpu.loadavg, &Cpu.loadavgpp);
  // Checked before the lumo count so that a server taken out of the choice queries nothing.
  if (cnf.clustrate <= 0.0f) {
    Cpu.loadavgpp = cnf.maxloadpp;
  } else {
    Trace("_xgetcpudata(1): containers=%d maxlimit=%d\n", containers, cnf.maxlimit);
    if (cnf.clustrate > 1.0f) cnf.clustrate = 1.0f;
    int own = ownLumoContainers();
    Cpu.loadavgpp = WeightLoadPerProc(Cpu.loadavgpp, containers - own, cnf);
  }
  Trace("_xgetcpudata(2): cpu.model=%s\n", Cpu.model.c_str());
  Trace("_xgetcpudata(3): clustrate=%f\n", static_cast<double>(cnf.clustrate));
  Trace("_xgetcpudata(4): cpus=%d phycores=%d cores=%d procs=%d loadavg=%0.2f loadavgpp=%0.2f\n",
        Cpu.cpus, Cpu.phycores, Cpu.cores, Cpu.procs, static_cast<double>(Cpu.loadavg),
        static_cast<double>(Cpu.loadavgpp));
  Trace("_xgetcpudata(5): maxlimitlo=%d maxlimit=%d maxlimithi=%d\n", cnf.maxlimitlo, cnf.maxlimit,
        cnf.maxlimithi);
  return 0;
}

}  // namespace qor
