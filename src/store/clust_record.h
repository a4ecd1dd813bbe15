// One row of the clusters table as the program holds it, this node's own row (Clust), the three
// arrays the queries fill, and the counters every query returns. Plain values: copied whole.
#pragma once

#include <cstdint>

#include "base/fixed_text.h"
#include "config/qorconf.h"

namespace qor {

// The two databases of a cluster, by the server that holds each. Outside a cluster the one
// configured database server counts as the master's.
enum class Db { kMaster, kSlave };
// Both, for what is kept per database (Index gives its slot).
constexpr Db kDbs[] = {Db::kMaster, Db::kSlave};
constexpr int kDbCount = 2;
constexpr int Index(Db db) {
  return db == Db::kMaster ? 0 : 1;
}
constexpr Db Other(Db db) {
  return db == Db::kMaster ? Db::kSlave : Db::kMaster;
}

// The form of a heartbeat's update of its own row: every column, or the few that change from
// cycle to cycle.
enum class RowForm { kShort, kFull };

using ClustText = FixedText<128>;

// Row status codes.
constexpr int kStatusActive = 100;
constexpr int kStatusInactive = 200;
constexpr int kStatusOld = 300;

// The role_id column holds the configuration's role code; 0 for any other role text.
constexpr int kRoleIdMaster = kRoleMaster;
constexpr int kRoleIdSlave = kRoleSlave;
constexpr int kRoleIdMember = kRoleMember;

// Template synchronisation states.
constexpr int kTplNever = 0;
constexpr int kTplSynced = 100;
constexpr int kTplOld = 300;

// Rows one array holds.
constexpr int Maxcluster = 64;

struct ClustRecord {
  int id = 0;
  ClustText hostname{};
  ClustText ipaddress{};
  ClustText clusterid{};
  ClustText role{};
  int role_id = 0;
  int status = 0;
  double dbwrite_count = 0;
  int64_t last_writemill = 0;
  int64_t tpl_updatemill = 0;
  int64_t tpl_syncmill = 0;
  int tpl_syncstate = 0;
  ClustText cpuinfo{};
  int cpus = 0;
  int cpuphycores = 0;
  int cpucores = 0;
  int cpuprocs = 0;
  double cpuloadavg = 0;
  double cpuloadavgpp = 0;
  int containers = 0;
  double cpuutil = 0;
  double memutil = 0;
  double diskutil = 0;
  ClustText qorver{};
  int64_t updated_at = 0;  // seconds since the epoch
  int64_t qortimemill = 0;
};

// Counters of one query: rows returned, active rows among them, cores of the active rows.
struct ActInfo {
  int count = 0;
  int servers = 0;
  int cores = 0;
  int side = -1;  // the database the rows came from: 0 the master's (or standalone), 1 the slave's
};

// This node's own row.
extern ClustRecord Clust;
// Rows last read from the master's database, the slave's database and a one-off query.
extern ClustRecord* ClustsOnMaster[Maxcluster];
extern ClustRecord* ClustsOnSlave[Maxcluster];
extern ClustRecord* ClustsTemp[Maxcluster];

// Gives each of the three arrays its 64 records; called once, first thing at start-up.
void InitClusterMem();

// role_id of a role text: "master" 100, "slave" 101, "member" 102, anything else 0.
int RoleIdOf(const char* role);

}  // namespace qor
