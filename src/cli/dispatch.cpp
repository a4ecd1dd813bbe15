#include "cli/dispatch.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include "base/clock.h"
#include "base/log.h"
#include "base/process.h"
#include "base/progname.h"
#include "cli/admin.h"
#include "cli/explain.h"
#include "cli/maintenance_cmd.h"
#include "cli/status.h"
#include "cli/usage.h"
#include "config/cpuset.h"
#include "config/qorconf.h"
#include "daemon/daemon.h"
#include "daemon/schedule.h"
#include "membership/heartbeat.h"
#include "membership/monitor.h"
#include "membership/nodedown.h"
#include "metrics/cpuinfo.h"
#include "metrics/ifaddress.h"
#include "net/ping.h"
#include "replication/replication.h"
#include "store/clust_record.h"
#include "store/cluster_query.h"
#include "store/lookups.h"
#include "store/pools.h"

namespace qor {

namespace {

// What a command gets besides the process-wide state.
struct CommandArgs {
  const CommandLine& line;
  const char* hostname;  // gethostname at start-up
  NodeState& node;       // this node's own row (host name and address) and room for reads
  int64_t startMill;     // the wall clock at start-up
};

using CommandFn = int (*)(const CommandArgs&);

int TimeSec(const CommandArgs& a) {
  std::printf("%" PRId64 "\n", a.startMill / 1000);
  return 0;
}

int TimeMill(const CommandArgs& a) {
  std::printf("%" PRId64 "\n", a.startMill);
  return 0;
}

// "-ping host [trycount]".
int PingCommand(const CommandArgs& a) {
  // Without a host there is nothing to ping: the usage text, and nothing is run.
  const char* host = a.line.host;
  if (host == nullptr) {
    Usage();
    return 0;
  }
  if (Ping(host, a.line.tries) == 0) {
    std::printf("ping OK! (%s)\n", host);
    return 0;
  }
  std::printf("ping NG! (%s)\n", host);
  return 1;
}

int CountCommand(const CommandArgs&) {
  int count = 0;
  GetClustCount(&count);
  std::printf("%d\n", count);
  return 0;
}

// Without a host operand a row command has nothing to act on, so the usage text is printed and
// no database is reached.
template <AdminOp op, Db db>
int Admin(const CommandArgs& a) {
  const char* host = op == AdminOp::kRemoveAll ? "-all" : a.line.host;
  if (host == nullptr) {
    Usage();
    return 0;
  }
  return RunAdmin(op, db, host);
}

template <int mode>
int Conf(const CommandArgs&) {
  return ShowConf(mode);
}

template <int full>
int Listing(const CommandArgs&) {
  return ShowTwoDatabases(full);
}

int ListingJson(const CommandArgs&) {
  return ShowTwoDatabasesJson();
}

// The daemon words. DaemonMain returns only on its stop paths; the process then exits 0. A refused
// start ends with 1 once QorMain has closed the pools.
int Start(const CommandArgs& a) {
  if (CheckRunning(0) != 0) return 1;
  LogNotice("%s daemon starting with -start...\n", Progname);
  DaemonMain(a.node.Clust);
  return 0;
}

int StartBoot(const CommandArgs& a) {
  if (CheckRunning(1) != 0) return 1;
  LogNotice("%s daemon starting with -start_boot...\n", Progname);
  DaemonMain(a.node.Clust);
  return 0;
}

int StartNocheck(const CommandArgs& a) {
  std::printf("%s daemon starting with interval=%ld(sec)...\n", Progname,
              static_cast<long>(Interval));
  DaemonMain(a.node.Clust);
  return 0;
}

// Words that need root: refused, they print so and still end with 0.
template <int (*Run)(const CommandArgs&)>
int AsRoot(const CommandArgs& a) {
  if (CheckRoot() != 0) {
    std::puts("Please sudo this!");
    return 0;
  }
  return Run(a);
}

int Stop(const CommandArgs&) {
  std::puts("qorclustd daemon stopping...");
  return StopDaemon();
}

int Chown(const CommandArgs&) {
  ChownLicWlistTpl();
  return 0;
}

int SyncTpl(const CommandArgs& a) {
  TplRecord record;
  RsyncLicWlistTpl(record, a.node.Clust.hostname.c_str());
  return 0;
}

int Proc(const CommandArgs&) {
  return ShowThisProc();
}

// One heartbeat writing the whole row, then what the two databases hold.
int Update(const CommandArgs& a) {
  UpdateCluster(a.node, RowForm::kFull, GetQorTimeMill());
  return ShowTwoDatabases(0);
}

// Ends only after the take-over scripts its pass started, as the listing may show their work.
int Monitor(const CommandArgs& a) {
  DetectorMemory detector;
  MonitorCluster(a.node, detector, ReadClocks());
  WaitQordown(detector.takeovers);
  return ShowTwoDatabases(0);
}

template <bool json>
int ExplainCommand(const CommandArgs&) {
  return Explain(json);
}

int Maintenance(const CommandArgs& a) {
  return MaintenanceCommand(a.line.operandCount, a.line.operands, a.hostname);
}

int DbListen(const CommandArgs&) {
  return ShowThisMysqlListen();
}
int Target(const CommandArgs&) {
  return ShowTarget();
}
int IsMaster(const CommandArgs& a) {
  return ShowIsMaster(a.hostname);
}

// The clear operation is for servers outside a cluster, and only cluster servers pass the
// configuration gate, so the command is always refused here.
int Clear(const CommandArgs&) {
  std::puts("_not standalone. cluster!");
  return 1;
}

// Matched in this order, exactly; anything else gets the usage text. Each word joins the table
// when the operation behind it exists.
struct Command {
  const char* word;
  CommandFn run;
};
const Command kCommands[] = {
    {"-ping", PingCommand},
    {"-timesec", TimeSec},
    {"-timemill", TimeMill},
    {"-rm_from_master", Admin<AdminOp::kRemove, Db::kMaster>},
    {"-rm_from_slave", Admin<AdminOp::kRemove, Db::kSlave>},
    {"-rm_all_from_master", Admin<AdminOp::kRemoveAll, Db::kMaster>},
    {"-rm_all_from_slave", Admin<AdminOp::kRemoveAll, Db::kSlave>},
    {"-set_old_on_master", Admin<AdminOp::kSetOld, Db::kMaster>},
    {"-set_old_on_slave", Admin<AdminOp::kSetOld, Db::kSlave>},
    {"-set_tplold_on_master", Admin<AdminOp::kSetTplOld, Db::kMaster>},
    {"-set_tplold_on_slave", Admin<AdminOp::kSetTplOld, Db::kSlave>},
    {"-start", Start},
    {"-start_boot", StartBoot},
    {"-start_nocheck", StartNocheck},
    {"-stop", AsRoot<Stop>},
    {"-ps", Proc},
    {"-proc", Proc},
    {"-dblisten", DbListen},
    {"-count", CountCommand},
    {"-update", Update},
    {"-l", Listing<0>},
    {"-lf", Listing<1>},
    {"-lj", ListingJson},
    {"-monitor", Monitor},
    {"-explain", ExplainCommand<false>},
    {"-explainj", ExplainCommand<true>},
    {"-target", Target},
    {"-chown", AsRoot<Chown>},
    {"-synctpl", AsRoot<SyncTpl>},
    {"-synclictpl", AsRoot<SyncTpl>},
    {"-cluster", Conf<kShowCluster>},
    {"-conf", Conf<kShowConf>},
    {"-role", Conf<kShowRole>},
    {"-master", Conf<kShowMaster>},
    {"-ismaster", IsMaster},
    {"-slave", Conf<kShowSlave>},
    {"-members", Conf<kShowMembers>},
    {"-all", Conf<kShowAll>},
    {"-all_not_master", Conf<kShowAllNotMaster>},
    {"-clear", Clear},
    {"-maintenance", Maintenance},
};

int Dispatch(const CommandArgs& args) {
  if (args.line.command < 0) {
    Usage();
    return 0;
  }
  return kCommands[args.line.command].run(args);
}

}  // namespace

bool StripDebugSuffix(std::string_view& word) {
  if (word.empty() || word.front() != '-' || word.back() != 'x') return false;
  word.remove_suffix(1);
  return true;
}

CommandLine ParseCommandLine(int argc, char** argv) {
  CommandLine line;
  if (argc < 2) return line;
  std::string_view arg(argv[1]);
  line.debug = StripDebugSuffix(arg);
  // No command word is near 127 characters, so a longer argument stays unknown when cut.
  line.word.set(arg);
  for (int i = 0; i < static_cast<int>(std::size(kCommands)); ++i) {
    if (line.word == kCommands[i].word) {
      line.command = i;
      break;
    }
  }
  if (argc >= 3 && argv[2][0] != '\0') line.host = argv[2];
  line.operands = argv + 2;
  line.operandCount = argc - 2;
  line.tries = argc == 3 ? 3 : argc == 4 ? std::atoi(argv[3]) : 0;
  return line;
}

int QorMain(int argc, char** argv) {
  KeepArguments(argc, argv);
  if (argc < 2) {
    Usage();
    return 0;
  }
  const CommandLine line = ParseCommandLine(argc, argv);
  if (line.debug) Xmode = 1;
  const OptionWord& word = line.word;

  if (word == "-v") return ShowVersion();
  if (word == "-qorver") {
    if (CheckRoot() != 0) {
      std::puts("Please sudo this!");
      return 1;
    }
    return ShowQorVersion();
  }

  const int64_t startMill = GetQorTimeMill();
  GetCpuinfo();
  char hostname[128] = {};
  gethostname(hostname, sizeof hostname - 1);
  if (GetQorconf() != 0) {
    std::puts("STAT:ENVQOR_READ_ERROR");
    return 0;
  }
  GetIfAddress(CurrentSvr, cnf.netif.c_str());
  ConnectionPool = word == "-start" || word == "-start_boot" ? 5 : 1;
  auto node = std::make_unique<NodeState>();
  if (StopsOutsideCluster(node->Clust, StopLevel::kNotice)) return 1;
  if (!(word == "-dblisten")) ReconnectCluster();
  // Active master and slave rows as the reachable database shows them now (0 or 1).
  int masterAlive = 0, slaveAlive = 0;
  CheckCluster(&masterAlive, &slaveAlive, Cluster, cnf.clustmaster.c_str(), cnf.clustslave.c_str(),
               node->ClustsTemp);
  node->Clust.hostname.set(hostname);
  node->Clust.ipaddress.set(CurrentSvr);
  int status = Dispatch(CommandArgs{line, hostname, *node, startMill});
  CloseConnectionPool();
  return status;
}

}  // namespace qor
