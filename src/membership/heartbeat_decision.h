// The heartbeats' decisions apart from their effects: pure functions of the rows a heartbeat read
// in the current cycle, saying what its row becomes, how it is written and which line is logged.
// They touch no process-wide state and may be called at any time.
#pragma once

#include <cstdint>

#include "store/clust_record.h"

namespace qor {

// Rows the table may hold for an insert to go ahead.
constexpr int kInsertRowLimit = 64;

// False when clustCount rows are more than an insert may add to.
bool InsertAllowed(int clustCount);

// An inactive row becomes active; every other status stays.
int Reactivated(int status);

// 1 when the two copies of a row disagree on last_writemill, so the write must carry it.
int LastWriteDiffers(const ClustRecord& row, const ClustRecord& other);

// Puts this node's host values (own), its container count, utilisation and platform version into
// a row read from a database; the row keeps its id, role, status, last_writemill, template fields
// and the rest.
void CopyOwnValues(ClustRecord& row, const ClustRecord& own);

// What a "-master_slave" read (ordered by role) found. first is looked at only for one row.
enum class PairRows {
  kBoth,       // two rows: entry 0 the master's, entry 1 the slave's
  kOwnOnly,    // one row, with the reader's role text
  kOtherOnly,  // one row, with any other role text
  kNeither,    // no row, or more than two
};
PairRows ClassifyPair(int count, const ClustRecord& first, const char* ownRole);

// What a read that should find exactly one row found.
enum class OneRow { kFound, kMissing, kDuplicates };
OneRow ClassifyOne(int count);

// --- Master: its row when the master's database holds the master's and the slave's rows.

enum class MasterAction {
  kWriteBoth,        // write the row to the master's database, then under Sm's id to the slave's
  kInsertIntoSlave,  // insert this node into the slave's database, then write the master's
  kWriteMasterOnly,  // the slave's server did not answer, or its database holds several master rows
};

// Which line explains a master row declared old.
enum class MasterNote {
  kNone,
  kSlaveCopyOld,     // updatemaster(5): the slave's database holds the row at 300
  kBehindSlaveCopy,  // updatemaster(6): the slave's copy was written later
  kBehindSlaveRow,   // updatemaster(7): the slave's row was written later
  kBehindAlone,      // updatemaster(10) and DB_OLD_STAT_1: the same, the slave's server silent
};

struct MasterRowDecision {
  MasterAction action = MasterAction::kWriteBoth;
  int status = 0;
  int64_t last_writemill = 0;
  int withlastwrite = 0;
  MasterNote note = MasterNote::kNone;
};

// Mm, Ms: the master's and the slave's rows in the master's database. slaveRows: master rows the
// slave's database returned (read only when slaveAnswered); Sm: the one of them when exactly one.
MasterRowDecision DecideMasterRow(const ClustRecord& Mm, const ClustRecord& Ms,
                                  const ClustRecord* Sm, bool slaveAnswered, int slaveRows);

// --- Slave.

// The slave's row when the master answers and its database holds both rows (Mm, Ms).
struct SlavePairDecision {
  int status;
  bool noteReactivated;  // updateslave(5)
  bool tplsync;          // the master declared this server's template copy old
};
SlavePairDecision DecideSlavePair(const ClustRecord& Mm, const ClustRecord& Ms);

// Which line explains the slave's database declared old.
enum class SlaveNote {
  kNone,
  kBehindMasterRow,  // updateslave(14) and DB_OLD_STAT_2
  kNoMasterRow,      // updateslave(15) and DB_OLD_STAT_3
};

struct SlaveAloneDecision {
  int status;
  int64_t last_writemill;
  int withlastwrite;
  SlaveNote note;
};

// The slave's row Ss in its own database while the master does not answer; Sm is the master's
// row there, nullptr when that database holds none.
SlaveAloneDecision DecideSlaveAlone(const ClustRecord* Sm, const ClustRecord& Ss);

// --- Member.

// Its row as read from the master's database.
struct MemberMasterDecision {
  int status;
  bool tplsync;
};
MemberMasterDecision DecideMemberOnMaster(const ClustRecord& M);

// Its row S as read from the slave's database; M is its row as last read from the master's
// database, in this cycle or an earlier one, nullptr when no read has found it yet.
// writtenOnMaster: M was written to the master's database in this cycle.
struct MemberSlaveDecision {
  int status;
  bool copyTemplate;  // take M's tpl_updatemill, tpl_syncmill and tpl_syncstate
};
MemberSlaveDecision DecideMemberOnSlave(const ClustRecord& S, const ClustRecord* M,
                                        bool writtenOnMaster);

}  // namespace qor
