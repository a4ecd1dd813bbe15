// What this node knows of itself and of the table from one cycle to the next: its own row, the
// rows it read last from each database and their counts, and the template pull a heartbeat asked
// for. The daemon owns one for its whole life and hands it to the heartbeat, the monitors and the
// slow pass; a command makes its own. Single-threaded.
#pragma once

#include "store/clust_record.h"
#include "store/cluster_writes.h"

namespace qor {

struct NodeState {
  // This node's own row, as the last heartbeat measured it (its utilisation figures as the
  // cycle's last re-check measured them).
  ClustRecord Clust;
  // True from a failed count of Clust.containers, which then keeps the last good one, to the next
  // good count.
  bool ContainersFailing = false;
  // The rows read last from the master's and the slave's database, by this cycle's heartbeat or
  // monitor; until one of them reads, as an earlier cycle left them. Their counts beside them.
  ClusterRows ClustsOnMaster;
  ClusterRows ClustsOnSlave;
  ActInfo mactinfo;
  ActInfo sactinfo;
  // Room for one-off reads, kept by nobody.
  ClusterRows ClustsTemp;
  // The heartbeats' writes of the own row so far, by database (Index); the monitors take a failed
  // one for a database that cannot judge this pass.
  OwnRowWrites HeartbeatWrites[kDbCount];
  // Rows of the table as the cycle last counted them (the heartbeat's row guard).
  int ClustCount = 0;
  // 1 when a heartbeat asks the cycle for a template pull now; the slow pass that pulled sets it
  // back to 0.
  int Tplsync = 0;
};

}  // namespace qor
