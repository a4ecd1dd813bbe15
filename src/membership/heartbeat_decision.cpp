#include "membership/heartbeat_decision.h"

namespace qor {

bool InsertAllowed(int clustCount) {
  return clustCount <= kInsertRowLimit;
}

int Reactivated(int status) {
  return status == kStatusInactive ? kStatusActive : status;
}

int LastWriteDiffers(const ClustRecord& row, const ClustRecord& other) {
  return row.last_writemill != other.last_writemill ? 1 : 0;
}

void CopyOwnValues(ClustRecord& row, const ClustRecord& own) {
  row.hostname = own.hostname;
  row.ipaddress = own.ipaddress;
  row.clusterid = own.clusterid;
  row.cpuinfo = own.cpuinfo;
  row.cpus = own.cpus;
  row.cpuphycores = own.cpuphycores;
  row.cpucores = own.cpucores;
  row.cpuprocs = own.cpuprocs;
  row.cpuloadavg = own.cpuloadavg;
  row.cpuloadavgpp = own.cpuloadavgpp;
  row.containers = own.containers;
  row.cpuutil = own.cpuutil;
  row.memutil = own.memutil;
  row.diskutil = own.diskutil;
  row.qorver = own.qorver;
}

PairRows ClassifyPair(int count, const ClustRecord& first, const char* ownRole) {
  if (count == 2) return PairRows::kBoth;
  if (count != 1) return PairRows::kNeither;
  return first.role == ownRole ? PairRows::kOwnOnly : PairRows::kOtherOnly;
}

OneRow ClassifyOne(int count) {
  if (count == 1) return OneRow::kFound;
  return count == 0 ? OneRow::kMissing : OneRow::kDuplicates;
}

namespace {

MasterRowDecision MasterOld(MasterAction action, MasterNote note) {
  return {action, kStatusOld, 0, 1, note};
}

MasterRowDecision MasterKept(MasterAction action, const ClustRecord& Mm, int withlastwrite) {
  return {action, Reactivated(Mm.status), Mm.last_writemill, withlastwrite, MasterNote::kNone};
}

}  // namespace

MasterRowDecision DecideMasterRow(const ClustRecord& Mm, const ClustRecord& Ms,
                                  const ClustRecord* Sm, bool slaveAnswered, int slaveRows) {
  // Several master rows in the slave's database leave no copy to judge against or write to: the
  // master's database alone decides, as when the slave is silent, so the master's own row keeps
  // moving and the slave's monitor never takes a running master for a dead one.
  if (!slaveAnswered || ClassifyOne(slaveRows) == OneRow::kDuplicates) {
    if (Mm.last_writemill >= Ms.last_writemill) {
      return MasterKept(MasterAction::kWriteMasterOnly, Mm, 0);
    }
    return MasterOld(MasterAction::kWriteMasterOnly, MasterNote::kBehindAlone);
  }
  switch (ClassifyOne(slaveRows)) {
    case OneRow::kMissing:
      // The copy inserted there takes the row's status as read; the last write goes along.
      return {MasterAction::kInsertIntoSlave, Mm.status, Mm.last_writemill, 1, MasterNote::kNone};
    case OneRow::kDuplicates:
    case OneRow::kFound:
      break;
  }
  const MasterAction both = MasterAction::kWriteBoth;
  if (Sm->status == kStatusOld) return MasterOld(both, MasterNote::kSlaveCopyOld);
  if (Mm.last_writemill < Sm->last_writemill) return MasterOld(both, MasterNote::kBehindSlaveCopy);
  if (Mm.last_writemill >= Ms.last_writemill)
    return MasterKept(both, Mm, LastWriteDiffers(Mm, *Sm));
  return MasterOld(both, MasterNote::kBehindSlaveRow);
}

SlavePairDecision DecideSlavePair(const ClustRecord& Mm, const ClustRecord& Ms) {
  // Only a slave row whose last write is not behind the master row's comes back to life.
  bool revive = Ms.last_writemill >= Mm.last_writemill && Ms.status == kStatusInactive;
  return {revive ? kStatusActive : Ms.status, revive, Ms.tpl_syncstate == kTplOld};
}

SlaveAloneDecision DecideSlaveAlone(const ClustRecord* Sm, const ClustRecord& Ss) {
  if (Sm == nullptr) {
    // Without a master row the database cannot be current; a row already old stays quiet.
    if (Ss.status == kStatusOld) return {kStatusOld, Ss.last_writemill, 0, SlaveNote::kNone};
    return {kStatusOld, 0, 1, SlaveNote::kNoMasterRow};
  }
  if (Ss.last_writemill >= Sm->last_writemill) {
    return {Reactivated(Ss.status), Ss.last_writemill, 0, SlaveNote::kNone};
  }
  return {kStatusOld, 0, 1, SlaveNote::kBehindMasterRow};
}

MemberMasterDecision DecideMemberOnMaster(const ClustRecord& M) {
  return {Reactivated(M.status), M.tpl_syncstate == kTplOld};
}

MemberSlaveDecision DecideMemberOnSlave(const ClustRecord& S, const ClustRecord* M,
                                        bool writtenOnMaster) {
  // Until a read has found the master's copy there is no status to follow: the slave's copy
  // keeps its own. The master's copy wins even when it is an earlier cycle's; its template
  // state only when it is this cycle's, so that a template pull recorded since is not undone.
  if (M == nullptr) return {Reactivated(S.status), false};
  return {M->status, writtenOnMaster};
}

}  // namespace qor
