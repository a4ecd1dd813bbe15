// The platform's containers table, cleaned by the daemon: rows that carry no container id are
// deleted (at start and every minute), and lumobr_/lumodt_ rows untouched for 5 minutes are
// released (slow work). Each statement runs on one pool, never on both.
#pragma once

#include "store/clust_record.h"

namespace qor {

// Standalone: the configured database server; in a cluster, on the master and the slave, each of
// the master's and the slave's databases that is set (not "0") and answers ping. Always 0.
int CheckAllRsvContainers();
// server selects the pool by address. 0 (also when no pool serves it), 500 without a live
// connection.
int DeleteNullSql(const char* server);
// Runs on db's pool only.
int DeleteLumoBRSql(Db db);

}  // namespace qor
