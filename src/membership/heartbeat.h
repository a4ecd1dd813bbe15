// The heartbeat: once per cycle this node writes its own row into the master's and the slave's
// databases by the rules of its role, inserting it where it is missing. UpdateCluster is the
// entry point; call it after the pools are opened (ReconnectCluster) and, in the daemon, after
// GetClustCount into the node's ClustCount. Single-threaded; each call re-reads the
// configuration.
#pragma once

#include <cstdint>

#include "membership/node_state.h"
#include "store/clust_record.h"
#include "store/pools.h"

namespace qor {

// Results of the heartbeats.
constexpr int kHeartbeatDone = 0;
constexpr int kHeartbeatStopped = 1;

// n: this node's own row, which the heartbeat measures anew, and the rows it reads (see
// NodeState); form: the whole row or the short form; nowMill: the wall clock the inserted rows are
// stamped with. The role writer's result, or 1 for a role that is none of master, slave and member.
int UpdateCluster(NodeState& n, RowForm form, int64_t nowMill);
int UpdateMaster(NodeState& n, RowForm form, int64_t nowMill);
int UpdateSlave(NodeState& n, RowForm form, int64_t nowMill);
int UpdateMember(NodeState& n, RowForm form, int64_t nowMill);

// The measuring part every role writer shares, into n.Clust: host name, own address, cluster id
// and role text (as configured before the re-read), the container count of containersOf, the
// processor figures, then the configuration re-read.
void FillOwnRecord(NodeState& n, const char* containersOf);

// The row guard of every insert branch: false, after the branch's error line
// "<op>(<step>): not insert because clustcount=%d is over!", when the table is full.
bool GuardInsert(const NodeState& n, const char* op, int step);
// The insert branch: behind the row guard of step, this node's row with status goes into db; the
// trace line of step + 1 shows traced, the status as that branch had it before; the row is
// stamped nowMill. kHeartbeatDone, or kHeartbeatStopped by the guard.
int InsertOwnRow(NodeState& n, const char* op, int step, Db db, int status, int traced,
                 int64_t nowMill);

// What tells the three heartbeats apart at their start: the name their lines carry
// ("updatemaster"), the role they serve, its name in the two spellings of the role error, and
// that error's step.
struct HeartbeatRole {
  const char* op;
  int role;
  const char* title;  // "Master"
  const char* word;   // "master"
  int roleErrorStep;
};
// The start every heartbeat shares: outside a cluster it writes nothing; otherwise it fills and
// traces this node's own record (containers counted in the database of containersOf), and stops
// a node whose configured role is not the heartbeat's. True to go on.
bool BeginHeartbeat(NodeState& n, const HeartbeatRole& r, const char* containersOf,
                    int64_t nowMill);

}  // namespace qor
