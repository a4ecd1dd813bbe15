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

void CopyOwnMemberValues(ClustRecord& row) {
  CopyOwnValues(row, Clust, Containers);
  row.role.set("member");
}

// The member's row in the master's database. written: set when the row was written there, not
// when it was inserted instead. 0 to go on with the slave's database, 1 to stop.
int WriteOnMaster(RowForm form, bool* written) {
  const char* master = cnf.clustmaster.c_str();
  const char* host = Clust.hostname.c_str();
  // A read that failed (its database kept it waiting past the bound, or refused it) says nothing
  // about the row: an insert then would give the server a second row, on whichever database the
  // insert falls back to, and "multiple found" would stop its heartbeats there for good.
  bool read = GetClusterSql(master, host, &mactinfo, ClustsOnMaster, Db::kMaster) == kDbOk;
  Trace("_xupdatemember(4): mactinfo.count=%d\n", mactinfo.count);
  switch (ClassifyOne(mactinfo.count)) {
    case OneRow::kFound: {
      ClustRecord& row = *ClustsOnMaster[0];
      CopyOwnMemberValues(row);
      MemberMasterDecision d = DecideMemberOnMaster(row);
      row.status = d.status;
      if (d.tplsync) Tplsync = 1;
      Trace("_xupdatemember(5): clustonmaster[0]->status=%d updating...\n", row.status);
      UpdateClusterSql(ReadDb(mactinfo, Db::kMaster), *ClustsOnMaster[0], 0, form);
      *written = true;
      return kHeartbeatDone;
    }
    case OneRow::kMissing:
      if (!read) return kHeartbeatDone;
      return InsertOwnRow("updatemember", 6, ReadDb(mactinfo, Db::kMaster), kStatusActive,
                          kStatusActive);
    case OneRow::kDuplicates:
      std::printf("Multiple %s found at CheckCluster on Master\n", host);
      LogError("updatemember(8) multiple %s found on Master\n", host);
      return kHeartbeatStopped;
  }
  return kHeartbeatDone;
}

// The member's row as last read from the master's database, in this cycle or an earlier one;
// nullptr until a read has found it, since the records hold nothing of this node before that.
const ClustRecord* LastReadOnMaster() {
  const ClustRecord& row = *ClustsOnMaster[0];
  return row.hostname == Clust.hostname ? &row : nullptr;
}

int WriteOnSlave(RowForm form, bool writtenOnMaster) {
  const char* slave = cnf.clustslave.c_str();
  const char* host = Clust.hostname.c_str();
  bool read = GetClusterSql(slave, host, &sactinfo, ClustsOnSlave, Db::kSlave) == kDbOk;
  switch (ClassifyOne(sactinfo.count)) {
    case OneRow::kFound: {
      ClustRecord& S = *ClustsOnSlave[0];
      CopyOwnMemberValues(S);
      const ClustRecord* M = LastReadOnMaster();
      MemberSlaveDecision d = DecideMemberOnSlave(S, M, writtenOnMaster);
      S.status = d.status;
      if (d.copyTemplate) {
        S.tpl_updatemill = M->tpl_updatemill;
        S.tpl_syncmill = M->tpl_syncmill;
        S.tpl_syncstate = M->tpl_syncstate;
      }
      Trace("_xupdatemember(9): clustonslave[0]->status=%d updating...\n", S.status);
      UpdateClusterSql(Db::kSlave, *ClustsOnSlave[0], 0, form);
      return kHeartbeatDone;
    }
    case OneRow::kMissing:
      if (!read) return kHeartbeatDone;
      return InsertOwnRow("updatemember", 10, Db::kSlave, kStatusActive, kStatusActive);
    case OneRow::kDuplicates:
      std::printf("Multiple %s found on Slave\n", host);
      LogError("updatemember(12) multiple %s found on slave\n", host);
      return kHeartbeatStopped;
  }
  return kHeartbeatDone;
}

}  // namespace

int UpdateMember(RowForm form) {
  if (!BeginHeartbeat({"updatemember", kRoleMember, "Member", "member", 13}, cnf.dbsvr.c_str())) {
    return kHeartbeatStopped;
  }
  bool writtenOnMaster = false;
  if (Ping(cnf.clustmaster.c_str()) == 0 &&
      WriteOnMaster(form, &writtenOnMaster) != kHeartbeatDone) {
    return kHeartbeatStopped;
  }
  // A server that does not answer is skipped without a message.
  if (Ping(cnf.clustslave.c_str()) == 0) return WriteOnSlave(form, writtenOnMaster);
  return kHeartbeatDone;
}

}  // namespace qor
