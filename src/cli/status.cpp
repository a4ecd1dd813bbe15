#include "cli/status.h"

#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

#include "base/fatal.h"
#include "base/shell.h"
#include "cli/json_listing.h"
#include "config/qorconf.h"
#include "net/ping.h"
#include "store/cluster_query.h"
#include "store/lookups.h"
#include "store/pools.h"

namespace qor {

namespace {

// The addresses of the rows selector finds in the master's database, one per line; the message
// and 1 when there are none (or, for a single-row question, not exactly one).
int ShowAddresses(const char* selector, bool exactlyOne, const char* none) {
  ActInfo info;
  auto rows = std::make_unique<ClusterRows>();
  ClustRecord** records = *rows;
  GetClusterSql(cnf.clustmaster.c_str(), selector, &info, records, Db::kMaster);
  if (exactlyOne ? info.count != 1 : info.count < 1) {
    std::puts(none);
    return 1;
  }
  for (int i = 0; i < info.count; ++i) std::puts(records[i]->ipaddress.c_str());
  return 0;
}

}  // namespace

int ShowConf(int mode) {
  switch (mode) {
    case kShowConf:
      std::printf("QOR_CLUSTER       : %s\n", cnf.cluster.c_str());
      std::printf("QOR_CLUSTID       : %s\n", cnf.clustid.c_str());
      std::printf("QOR_CLUSTROLE     : %s\n", cnf.clustrole.c_str());
      std::printf("QOR_CLUSTMASTER   : %s\n", cnf.clustmaster.c_str());
      std::printf("QOR_CLUSTSLAVE    : %s\n", cnf.clustslave.c_str());
      std::printf("QOR_CLUSTRATE     : %f\n", static_cast<double>(cnf.clustrate));
      return 0;
    case kShowRole:
      std::puts(cnf.clustrole.c_str());
      return 0;
    case kShowCluster:
      std::puts(cnf.cluster.c_str());
      return 0;
    case kShowMaster:
      return ShowAddresses("-master", true, "no master server on master's db.");
    case kShowSlave:
      return ShowAddresses("-slave", true, "no slave server on master's db.");
    case kShowMembers:
      return ShowAddresses("-member", false, "no member servers on master's db.");
    case kShowAll:
      return ShowAddresses("-all", false, "no servers on master's db.");
    case kShowAllNotMaster:
      return ShowAddresses("-not_master", false, "no servers on master's db.");
    default:
      return 1;
  }
}

int ShowThisMysqlListen() {
  const char* command = "ss -atn | grep ':3306' | grep 'LISTEN'";
  bool started = RunShell(command, 128, [](char* line) { std::fputs(line, stdout); });
  if (!started) FatalCommand(command);
  return 0;
}

int ShowTwoDatabases(int full) {
  const char* sides[2][2] = {
      {"1.-- on master db ---------------------------------", cnf.clustmaster.c_str()},
      {"2.-- on slave db ----------------------------------", cnf.clustslave.c_str()},
  };
  for (const auto& side : sides) {
    std::puts(side[0]);
    if (Ping(side[1]) == 0) {
      ShowClusterList(side[1], full);
    } else {
      std::printf("%s is not running!\n", side[1]);
    }
  }
  return 0;
}

namespace {

// The rows of server's database into records, through the pool ReadClusterList would take; false
// when the query failed.
bool ReadRows(const char* server, ActInfo* info, ClustRecord** records) {
  const Db db = !(mpool != nullptr && cnf.clustmaster == server) && spool != nullptr &&
                        cnf.clustslave == server
                    ? Db::kSlave
                    : Db::kMaster;
  return GetClusterSql(server, "-all", info, records, db) == kDbOk;
}

}  // namespace

int ShowTwoDatabasesJson() {
  // A cluster that is not enabled has no databases to list: an empty list, so that a script
  // reading it needs no second format.
  const char* sides[2][2] = {{"master", cnf.clustmaster.c_str()},
                             {"slave", cnf.clustslave.c_str()}};
  std::string out = "{\"databases\":[";
  bool unread = false;
  auto rows = std::make_unique<ClusterRows>();
  ClustRecord** records = *rows;
  for (int i = 0; i < 2 && Cluster; ++i) {
    const bool answers = Ping(sides[i][1]) == 0;
    ActInfo info;
    const bool read = answers && ReadRows(sides[i][1], &info, records);
    // A database that answers but whose rows cannot be read would list nobody, and a script
    // would take that for a cluster where nobody is silent.
    unread |= answers && !read;
    out += i == 0 ? "\n" : ",\n";
    AppendDatabaseJson(out, sides[i][0], sides[i][1], answers, read, records, read ? info.count : 0,
                       time(nullptr));
  }
  out += "]}";
  std::puts(out.c_str());
  return unread ? 1 : 0;
}

int ShowTarget() {
  auto rows = std::make_unique<ClusterRows>();
  ClustRecord own;
  FixedText<128> Clusttarget;
  if (ClustRole == kRoleMaster) {
    GetTarget(cnf.clustmaster.c_str(), *rows, own, Clusttarget);
    std::printf("Master: Cluster Target -> %s\n", Clusttarget.c_str());
  } else if (ClustRole == kRoleSlave) {
    GetTarget(cnf.clustslave.c_str(), *rows, own, Clusttarget);
    std::printf("Slave: Cluster Target -> %s\n", Clusttarget.c_str());
  } else {
    std::puts("Can not get cluster target on member servers!");
  }
  return 0;
}

int ShowIsMaster(const char* hostname) {
  auto rows = std::make_unique<ClusterRows>();
  bool master = IsClustMaster(cnf.clustmaster.c_str(), hostname, *rows) == 0;
  std::puts(master ? "1" : "0");
  return master ? 0 : 1;
}

}  // namespace qor
