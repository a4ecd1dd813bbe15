// UpdateMember: a member writes its row, found by its host name, into each database whose server
// answers; where the two copies disagree on the status, the master's copy wins.
#include <cstdio>

#include "base/clock.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "membership/heartbeat.h"
#include "membership/heartbeat_decision.h"
#include "net/ping.h"
#include "store/cluster_query.h"
#include "store/cluster_writes.h"
#include "store/containers.h"
#include "store/pools.h"

namespace qor {

namespace {

void CopyOwnMemberValues(NodeState& n, ClustRecord& row) {
  CopyOwnValues(row, n.Clust);
  row.role.set("member");
}

// What differs between the member's writes into the two databases: where the row is read, and
// the step numbers and words of its trace and log lines.
struct MemberSide {
  Db db;
  ActInfo NodeState::*info;
  ClusterRows NodeState::*rows;
  int countStep;  // the trace of the rows found; 0: none
  int writeStep, insertStep, multipleStep;
  const char* rowsName;       // in the write's trace line
  const char* multipleWhere;  // standard output's line on duplicates
  const char* multipleLog;    // the log line's
};

// By Index(db).
const MemberSide kSides[] = {{Db::kMaster, &NodeState::mactinfo, &NodeState::ClustsOnMaster, 4, 5,
                              6, 8, "clustonmaster", "at CheckCluster on Master", "Master"},
                             {Db::kSlave, &NodeState::sactinfo, &NodeState::ClustsOnSlave, 0, 9, 10,
                              12, "clustonslave", "on Slave", "slave"}};

// The member's row as last read from the master's database, in this cycle or an earlier one;
// nullptr until a read has found it, since the records hold nothing of this node before that.
const ClustRecord* LastReadOnMaster(NodeState& n) {
  const ClustRecord& row = *n.ClustsOnMaster[0];
  return row.hostname == n.Clust.hostname ? &row : nullptr;
}

// The found row's status (and, on the slave, template state) by the decision of its database.
void Decide(NodeState& n, Db db, ClustRecord& row, bool writtenOnMaster) {
  if (db == Db::kMaster) {
    MemberMasterDecision d = DecideMemberOnMaster(row);
    row.status = d.status;
    if (d.tplsync) n.Tplsync = 1;
    return;
  }
  const ClustRecord* M = LastReadOnMaster(n);
  MemberSlaveDecision d = DecideMemberOnSlave(row, M, writtenOnMaster);
  row.status = d.status;
  if (d.copyTemplate) {
    row.tpl_updatemill = M->tpl_updatemill;
    row.tpl_syncmill = M->tpl_syncmill;
    row.tpl_syncstate = M->tpl_syncstate;
  }
}

// The member's row in one database. *writtenOnMaster: set when the row was written into the
// master's, not when it was inserted instead; the slave's decision reads it. 0 to go on, 1 to
// stop.
int WriteOn(NodeState& n, const MemberSide& side, RowForm form, int64_t nowMill,
            bool* writtenOnMaster) {
  const char* host = n.Clust.hostname.c_str();
  ActInfo& info = n.*side.info;
  ClusterRows& rows = n.*side.rows;
  // A read that failed (its database kept it waiting past the bound, or refused it) says nothing
  // about the row: an insert then would give the server a second row, on whichever database the
  // insert falls back to, and "multiple found" would stop its heartbeats there for good.
  bool read =
      GetClusterSql(side.db == Db::kMaster ? cnf.clustmaster.c_str() : cnf.clustslave.c_str(), host,
                    &info, rows, side.db) == kDbOk;
  if (side.countStep != 0) {
    Trace("_xupdatemember(%d): mactinfo.count=%d\n", side.countStep, info.count);
  }
  const Db target = ReadDb(info, side.db);
  switch (ClassifyOne(info.count)) {
    case OneRow::kFound: {
      ClustRecord& row = *rows[0];
      CopyOwnMemberValues(n, row);
      Decide(n, side.db, row, *writtenOnMaster);
      Trace("_xupdatemember(%d): %s[0]->status=%d updating...\n", side.writeStep, side.rowsName,
            row.status);
      UpdateClusterSql(target, row, 0, form, n.HeartbeatWrites);
      if (side.db == Db::kMaster) *writtenOnMaster = true;
      return kHeartbeatDone;
    }
    case OneRow::kMissing:
      if (!read) return kHeartbeatDone;
      return InsertOwnRow(n, "updatemember", side.insertStep, target, kStatusActive, kStatusActive,
                          nowMill);
    case OneRow::kDuplicates:
      std::printf("Multiple %s found %s\n", host, side.multipleWhere);
      LogError("updatemember(%d) multiple %s found on %s\n", side.multipleStep, host,
               side.multipleLog);
      return kHeartbeatStopped;
  }
  return kHeartbeatDone;
}

}  // namespace

int UpdateMember(NodeState& n, RowForm form, int64_t nowMill) {
  if (!BeginHeartbeat(n, {"updatemember", kRoleMember, "Member", "member", 13}, cnf.dbsvr.c_str(),
                      nowMill)) {
    return kHeartbeatStopped;
  }
  bool writtenOnMaster = false;
  if (Ping(cnf.clustmaster.c_str()) == 0 &&
      WriteOn(n, kSides[Index(Db::kMaster)], form, nowMill, &writtenOnMaster) != kHeartbeatDone) {
    return kHeartbeatStopped;
  }
  // A server that does not answer is skipped without a message.
  if (Ping(cnf.clustslave.c_str()) == 0) {
    return WriteOn(n, kSides[Index(Db::kSlave)], form, nowMill, &writtenOnMaster);
  }
  return kHeartbeatDone;
}

}  // namespace qor
