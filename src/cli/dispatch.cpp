#include "cli/dispatch.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "base/clock.h"
#include "base/log.h"
#include "base/process.h"
#include "config/cpuset.h"
#include "config/qorconf.h"
#include "metrics/cpuinfo.h"
#include "metrics/ifaddress.h"
#include "store/clust_record.h"
#include "cli/usage.h"

namespace qor {

namespace {

// What a command gets besides the process-wide state.
struct CommandArgs {
  int argc;
  char** argv;
  const char* hostname;  // gethostname at start-up
};

using CommandFn = int (*)(const CommandArgs&);

int TimeSec(const CommandArgs&) {
  std::printf("%" PRId64 "\n", Timemill / 1000);
  return 0;
}

int TimeMill(const CommandArgs&) {
  std::printf("%" PRId64 "\n", Timemill);
  return 0;
}

// Matched in this order, exactly; anything else gets the usage text. Each word joins the table
// when the operation behind it exists.
struct Command {
  const char* word;
  CommandFn run;
};
const Command kCommands[] = {
    {"-timesec", TimeSec},
    {"-timemill", TimeMill},
};

int Dispatch(const OptionWord& word, const CommandArgs& args) {
  for (const Command& c : kCommands) {
    if (word == c.word) return c.run(args);
  }
  Usage();
  return 0;
}

}  // namespace

bool StripDebugSuffix(OptionWord& word) {
  size_t n = word.size();
  if (n == 0 || word.buf[0] != '-' || word.buf[n - 1] != 'x') return false;
  word.buf[n - 1] = '\0';
  return true;
}

int QorMain(int argc, char** argv) {
  if (argc < 2) {
    Usage();
    return 0;
  }
  OptionWord word;
  // No command word is near 127 characters, so a longer argument stays unknown when cut.
  word.set(argv[1]);
  if (StripDebugSuffix(word)) Xmode = 1;

  if (word == "-v") return ShowVersion();
  if (word == "-qorver") {
    if (checkroot() != 0) {
      std::puts("Please sudo this!");
      return 1;
    }
    return ShowQorVersion();
  }

  InitClusterMem();
  InitCpusets();
  Timemill = getqortimemill();
  GetCpuinfo();
  char hostname[128] = {};
  gethostname(hostname, sizeof hostname - 1);
  if (GetQorconf() != 0) {
    std::puts("STAT:ENVQOR_READ_ERROR");
    return 0;
  }
  getifaddress(CurrentSvr, cnf.netif.c_str());
  if (CheckClustConf(CurrentSvr.c_str(), Clust.clusterid, Clust.role) != kClustConfValid) {
    LogNotice("stopped because cluster not enabled or invalid config!");
    CloseLog();
    return 1;
  }
  Clust.hostname.set(hostname);
  Clust.ipaddress.set(CurrentSvr);
  return Dispatch(word, CommandArgs{argc, argv, hostname});
}

}  // namespace qor
