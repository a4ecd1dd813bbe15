// Read-only questions the command line asks of the clusters table: which of master and slave is
// active, whether a row is the master's, the cluster target, and the table listing.
#pragma once

#include "base/fixed_text.h"
#include "store/clust_record.h"

namespace qor {

// Both flags are set to 0 first; 0 when the rows told, 1 otherwise.
int CheckCluster(int* masterAlive, int* slaveAlive, int cluster, const char* master,
                 const char* slave, ClustRecord** records);
// 0 when selector matches exactly one row and it is the master's; 1 otherwise.
int IsClustMaster(const char* server, const char* selector, ClustRecord** records);
// Copies entry index into own, the node's own row (after re-reading the configuration); 1 when
// count is below 1.
int GetClust(int count, ClustRecord** records, int index, ClustRecord& own);
// The active server with the lowest load per processor: 0 when exactly one candidate was found;
// Clusttarget gets the first entry's address either way, own the whole entry.
int GetTarget(const char* server, ClustRecord** records, ClustRecord& own,
              FixedText<128>& Clusttarget);
// Reads all of server's rows into records, from the pool that reaches server; the count.
int ReadClusterList(const char* server, ClustRecord** records);
// Prints server's clusters table; full adds cores, utilisation and version.
void ShowClusterList(const char* server, int full);

}  // namespace qor
