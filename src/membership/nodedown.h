// What follows a server found silent: the report, the move of its browser containers when it was
// the peer (master or slave), and the platform's take-over script; and the sweep that deletes
// members silent for cnf.clustsweep minutes.
#pragma once

#include "store/clust_record.h"

namespace qor {

// rec: the silent server's row as the monitor read it.
void Qordown(const ClustRecord& rec);

// Moves the lumobr_ container rows of the server at source to destination, in the database of
// destination. 0 (also when no pool serves destination, or the statement failed), 500 without a
// usable connection.
int LumoBRContainerRepaireSql(const char* source, const char* destination);

// Deletes stale member rows where this node is responsible. Call only when cnf.clustsweep > 0.
void SweepCluster();

}  // namespace qor
