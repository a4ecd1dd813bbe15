// The running cluster as the platform sees it: the rows of either database, whether every host
// of the lab has its one active row, and what each host logged and ran. Serves qorlab's bring-up
// (a lab is ready once every row is active in both databases), the lab benchmarks and the
// end-to-end tests.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "lab/lab.h"

namespace qorlab {

constexpr int kMaster = 0;
constexpr int kSlave = 1;

struct ClusterRow {
  std::string hostname, ipaddress, role, qorver;
  int role_id = -1;
  int status = -1;
  int64_t last_writemill = -1;
  int64_t updated_at = -1;  // seconds since the epoch, as the database reads its own column
  int64_t now = -1;         // the database's now() when the row was read
};

// Rows of the clusters table in the database of host db (kMaster or kSlave), in id order; none,
// with the client's complaint in err (when given), when the database cannot be read.
std::vector<ClusterRow> ReadRows(const Lab& lab, int db, std::string* err = nullptr);
// The row of hostname there; a row with role_id -1 when there is none.
ClusterRow RowOf(const Lab& lab, int db, const std::string& hostname);

// What keeps database db from holding exactly one active row per host of the lab, each with its
// host's name, address, role and role code; empty when nothing does.
std::string NotAllActive(const Lab& lab, int db);

// Lines of host i's syslog whose message begins with prefix.
int CountLogged(Lab& lab, int i, const std::string& prefix);
// Runs of the take-over script (the qordown.sh stand-in) on host i so far.
int Takeovers(const Lab& lab, int i);
// The same on the master and the slave together: the cluster's take-overs.
int ClusterTakeovers(const Lab& lab);
// Detected_ lines of the master and the slave that name none of the hosts dead: live servers
// taken for silent.
int DetectedOtherThan(Lab& lab, const std::set<std::string>& dead);

// True when the row of hostname in database db is written again within seconds from now.
bool Moves(const Lab& lab, int db, const std::string& hostname, int seconds);
// Marks the master's template tree changed now, as the platform does, in the master's row; the
// mark's time, or -1.
int64_t MarkTemplates(const Lab& lab);

// A zone whose daylight saving time is in force now (Berlin's from late March to late October,
// Sydney's from early October to early April), for a lab that must run in one. Sets this
// process's own zone to it as well.
std::string DaylightSavingZone();

}  // namespace qorlab
