// Container counts of this server from the platform's containers table: the count the heartbeats
// store, and the own lumo browser and desktop containers, which the weighted load does not count
// against the limits.
#pragma once

namespace qor {

// Rows of host that hold a container, by the first open pool, into *count: 0, or 500 without a
// usable connection, 501 when the query failed (*count untouched).
int GetContainers(const char* host, int* count);
// The heartbeat's count: *count gets host's count; after a failure it keeps the last good one,
// and the first failure of a run is logged. *failing: true from a failed count to the next good
// one. GetContainers' status.
int CountContainers(const char* host, int* count, bool* failing);

// This server's lumobr and lumodt containers; 0 on failure, on a member, or without any pool.
int GetLumoContainerSql();

}  // namespace qor
