// The monitors' decisions apart from their effects: pure functions of one row (or the master's
// and the slave's rows) read in the current pass, saying whether the server is silent, what its
// row becomes, whether the take-over runs and which line explains it. No process-wide state.
#pragma once

#include <cstdint>

#include "store/clust_record.h"

namespace qor {

// A row unchanged for more seconds than this belongs to a silent server.
constexpr int64_t kSilentSeconds = 15;

// Seconds the row has been silent at now. notAnswering: the seconds since updatedAt in which the
// database the row was read from did not answer; a database that did not answer could not take
// anyone's heartbeat, so that time does not count against the row.
int64_t SilentFor(int64_t now, int64_t updatedAt, int64_t notAnswering);
bool IsSilent(int64_t silentFor);

struct MonitorVerdict {
  bool silent = false;    // the Detected_ line is due
  int status = 0;         // the decided status
  bool changed = false;   // the decided status is to be written
  bool takeover = false;  // the server was active: Qordown
  bool old = false;       // its database is declared old: DB_OLD_STAT_ and the notice
};

// --- On the master, for each row read from its own database that is not a master row.

// row: a slave or any other row; masterLastWriteMill: the master row's last_writemill as last
// read. A slave that stopped writing before the master did becomes old (300), others inactive.
MonitorVerdict DecideOnMaster(const ClustRecord& row, int64_t silentFor,
                              int64_t masterLastWriteMill);

// The row's template copy is older than the master's tree and not yet marked out of date. The mark
// stamps the row's updated_at: made on every pass, it would keep a dead server's row fresh.
bool TemplateMarkDue(const ClustRecord& row, int64_t masterTplUpdateMill);

// The silence to judge a member's row by on the master: its age when the row looks silent only
// because the master's database did not answer (silentFor, the time it answered, says not yet)
// and the slave's database already holds it inactive or old (inactiveOnSlave): the slave judged
// it there meanwhile, and both databases agree at once instead of 15 s after the outage.
int64_t SilenceOnMaster(const ClustRecord& row, int64_t age, int64_t silentFor,
                        bool inactiveOnSlave);

// Whether a monitor is probably the server cut off from the network: every one of the others
// (at least two: with one, a master and a slave have no third view) silent in its pass, and its
// peer not answering ping. Its take-overs are then held.
bool CutOff(int others, int silentOthers, bool peerAnswers);

// Whether the take-over the verdict asks for is still to run on the master: not for a member that
// the slave's database already holds inactive or old (slaveCopyStatus; 0 when not read), which
// the slave took over while the master's database did not answer it.
bool TakeoverDue(const MonitorVerdict& v, const ClustRecord& row, int slaveCopyStatus);

// --- On the slave.

// The master's row as its own database holds it (M, status 100 or 200), with the slave's row S
// from there: the master answers ping. A stale M is rewritten even when it stays 200.
MonitorVerdict DecideMasterAnswering(const ClustRecord& M, const ClustRecord& S, int64_t silentFor);

// The master's row R as the slave's database holds it, the master silent; the two last_writemill
// values as the slave's database holds them.
MonitorVerdict DecideMasterSilent(const ClustRecord& R, int64_t silentFor,
                                  int64_t masterLastWriteMill, int64_t slaveLastWriteMill);

// A member's (or other) row from the slave's database, the master silent: only active rows are
// judged.
MonitorVerdict DecideMemberFromSlave(const ClustRecord& row, int64_t silentFor);

}  // namespace qor
