// One row of the clusters table as the program holds it, the records a query fills, and the
// counters every query returns. Plain values: copied whole, but for the records of a query.
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

// Room for the rows of one query: 64 records, and the entries a query's records argument takes,
// each pointing at its own record. Not copied: the entries point into the object.
class ClusterRows {
 public:
  ClusterRows() {
    for (int i = 0; i < Maxcluster; ++i) at_[i] = &records_[i];
  }
  ClusterRows(const ClusterRows&) = delete;
  ClusterRows& operator=(const ClusterRows&) = delete;
  operator ClustRecord**() { return at_; }
  // The same entries, for a reader that changes nothing.
  const ClustRecord* const* entries() const { return at_; }

 private:
  ClustRecord records_[Maxcluster];
  ClustRecord* at_[Maxcluster];
};

// role_id of a role text: "master" 100, "slave" 101, "member" 102, anything else 0.
int RoleIdOf(const char* role);

}  // namespace qor
