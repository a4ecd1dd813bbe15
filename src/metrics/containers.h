// Container counts of this server from the platform's containers table: the count the heartbeats
// store, and the own lumo browser and desktop containers, which the weighted load does not count
// against the limits.
#pragma once

namespace qor {

// Containers on this server as the heartbeats last counted them (500 or 501 after a failed count).
extern int Containers;

// Rows of host that hold a container, by the first open pool; 500 without a usable connection,
// 501 when the query failed.
int getcontainers(const char* host);

// This server's lumobr and lumodt containers; 0 on failure, on a member, or without any pool.
int GetLumoContainerSql();

}  // namespace qor
