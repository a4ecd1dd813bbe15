#include "membership/heartbeat_decision.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "support/fakes.h"

namespace qor {
namespace {

ClustRecord Row(int status, int64_t lastwrite, int tplstate = kTplSynced) {
  ClustRecord r;
  r.status = status;
  r.last_writemill = lastwrite;
  r.tpl_syncstate = tplstate;
  return r;
}

TEST(MembershipRules, InsertGuardAndOneRowReads) {
  EXPECT_TRUE(InsertAllowed(0));
  EXPECT_TRUE(InsertAllowed(64));
  EXPECT_FALSE(InsertAllowed(65));
  EXPECT_EQ(ClassifyOne(0), OneRow::kMissing);
  EXPECT_EQ(ClassifyOne(1), OneRow::kFound);
  EXPECT_EQ(ClassifyOne(2), OneRow::kDuplicates);
}

TEST(MembershipRules, PairReadByCountAndRole) {
  ClustRecord slaveRow;
  slaveRow.role = "slave";
  struct {
    int count;
    const char* ownRole;
    PairRows want;
  } cases[] = {
      {0, "slave", PairRows::kNeither},    {1, "slave", PairRows::kOwnOnly},
      {1, "master", PairRows::kOtherOnly}, {2, "master", PairRows::kBoth},
      {3, "master", PairRows::kNeither},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ClassifyPair(c.count, slaveRow, c.ownRole), c.want)
        << c.count << " rows, own role " << c.ownRole;
  }
}

// The role slot, its state and its template fields belong to the row; the containers counted
// this cycle, not the record's. Copied both ways between an empty and a full record, every field
// shows whether it was copied.
TEST(MembershipRules, OwnValueCopyKeepsTheRowsOwnFields) {
  ClustRecord row, full = qortest::SampleRecord();
  CopyOwnValues(row, full, 7);
  EXPECT_EQ(qortest::Describe(row),
            "id=0 host=node-1 ip=10.0.0.5 cid=c1 role= role_id=0 status=0 dbw=0 lw=0 tplupd=0 "
            "tplsync=0 tplstate=0 cpuinfo=Xeon 2.4 cpus=2 phy=8 cores=16 procs=32 load=1.236 "
            "loadpp=0.075 containers=7 cpu=0 mem=0 disk=0 ver= updated=0 qortime=0");
  CopyOwnValues(full, ClustRecord{}, 7);
  EXPECT_EQ(qortest::Describe(full),
            "id=12 host= ip= cid= role=member role_id=55 status=100 dbw=77 lw=1700000000123 "
            "tplupd=1700000000456 tplsync=1700000000789 tplstate=300 cpuinfo= cpus=0 phy=0 "
            "cores=0 procs=0 load=0 loadpp=0 containers=7 cpu=0.91 mem=0.92 disk=0.93 ver=rec-ver "
            "updated=12345 qortime=999");
}

// Mm, Ms: master's and slave's rows in the master's database; Sm: the master's row in the
// slave's database (used when slaveRows is 1).
struct MasterCase {
  const char* name;
  int mmStatus;
  int64_t mmWrite, msWrite;
  bool answered;
  int slaveRows;
  int smStatus;
  int64_t smWrite;
  MasterAction action;
  int status;
  int64_t lastwrite;
  int withlastwrite;
  MasterNote note;
};

constexpr int A = kStatusActive, I = kStatusInactive, O = kStatusOld;
constexpr MasterAction kBoth = MasterAction::kWriteBoth, kAlone = MasterAction::kWriteMasterOnly;

const MasterCase kMasterCases[] = {
    {"all equal, inactive becomes active", I, 4000, 4000, true, 1, A, 4000, kBoth, A, 4000, 0,
     MasterNote::kNone},
    {"all equal, active stays", A, 4000, 4000, true, 1, A, 4000, kBoth, A, 4000, 0,
     MasterNote::kNone},
    {"judged current but already old stays old", O, 4000, 4000, true, 1, A, 4000, kBoth, O, 4000, 0,
     MasterNote::kNone},
    {"current, the slave's copy lags: last write carried", A, 7000, 5000, true, 1, A, 6000, kBoth,
     A, 7000, 1, MasterNote::kNone},
    {"slave's copy at 300 wins over a current database", A, 9000, 1000, true, 1, O, 9000, kBoth, O,
     0, 1, MasterNote::kSlaveCopyOld},
    {"slave's copy written later", A, 5000, 1000, true, 1, A, 6000, kBoth, O, 0, 1,
     MasterNote::kBehindSlaveCopy},
    {"slave's row written later", A, 5000, 7000, true, 1, A, 5000, kBoth, O, 0, 1,
     MasterNote::kBehindSlaveRow},
    {"slave's database lacks the row: inserted with the status as read", I, 1234, 99, true, 0, 0, 0,
     MasterAction::kInsertIntoSlave, I, 1234, 1, MasterNote::kNone},
    {"two master rows on the slave's database: its own alone", I, 1, 1, true, 2, 0, 0, kAlone, A, 1,
     0, MasterNote::kNone},
    {"five master rows, behind the slave's row", A, 5000, 7000, true, 5, 0, 0, kAlone, O, 0, 1,
     MasterNote::kBehindAlone},
    {"slave silent, current: inactive becomes active", I, 7000, 5000, false, 0, 0, 0, kAlone, A,
     7000, 0, MasterNote::kNone},
    {"slave silent, equal and old stays old", O, 5000, 5000, false, 0, 0, 0, kAlone, O, 5000, 0,
     MasterNote::kNone},
    {"slave silent, behind the slave's row", A, 5000, 7000, false, 0, 0, 0, kAlone, O, 0, 1,
     MasterNote::kBehindAlone},
};

TEST(MembershipMasterRow, TransitionTable) {
  for (const MasterCase& c : kMasterCases) {
    ClustRecord Mm = Row(c.mmStatus, c.mmWrite), Ms = Row(A, c.msWrite);
    ClustRecord Sm = Row(c.smStatus, c.smWrite);
    MasterRowDecision d = DecideMasterRow(Mm, Ms, c.answered && c.slaveRows == 1 ? &Sm : nullptr,
                                          c.answered, c.slaveRows);
    EXPECT_EQ(d.action, c.action) << c.name;
    EXPECT_EQ(d.status, c.status) << c.name;
    EXPECT_EQ(d.last_writemill, c.lastwrite) << c.name;
    EXPECT_EQ(d.withlastwrite, c.withlastwrite) << c.name;
    EXPECT_EQ(d.note, c.note) << c.name;
  }
}

struct SlavePairCase {
  const char* name;
  int msStatus;
  int64_t mmWrite, msWrite;
  int tplstate;
  int status;
  bool note, tplsync;
};

TEST(MembershipSlaveRow, PairOnTheMastersDatabase) {
  const SlavePairCase cases[] = {
      {"inactive, equal last writes: active", I, 4000, 4000, kTplSynced, A, true, false},
      {"inactive, ahead of the master row: active", I, 4000, 4001, kTplSynced, A, true, false},
      {"inactive, behind the master row: stays", I, 4000, 3999, kTplSynced, I, false, false},
      {"active stays quiet", A, 0, 0, kTplSynced, A, false, false},
      {"old stays old", O, 0, 0, kTplSynced, O, false, false},
      {"template copy declared old", A, 0, 0, kTplOld, A, false, true},
      {"template never synchronised is no request", A, 0, 0, kTplNever, A, false, false},
  };
  for (const SlavePairCase& c : cases) {
    SlavePairDecision d =
        DecideSlavePair(Row(A, c.mmWrite), Row(c.msStatus, c.msWrite, c.tplstate));
    EXPECT_EQ(d.status, c.status) << c.name;
    EXPECT_EQ(d.noteReactivated, c.note) << c.name;
    EXPECT_EQ(d.tplsync, c.tplsync) << c.name;
  }
}

struct SlaveAloneCase {
  const char* name;
  bool hasMasterRow;
  int64_t smWrite;
  int ssStatus;
  int64_t ssWrite;
  int status;
  int64_t lastwrite;
  int withlastwrite;
  SlaveNote note;
};

TEST(MembershipSlaveRow, OwnDatabaseWhileTheMasterIsSilent) {
  const SlaveAloneCase cases[] = {
      {"master row written later: database old", true, 9000, A, 4000, O, 0, 1,
       SlaveNote::kBehindMasterRow},
      {"inactive and current: active", true, 4000, I, 4000, A, 4000, 0, SlaveNote::kNone},
      {"ahead and old stays old", true, 4000, O, 5000, O, 5000, 0, SlaveNote::kNone},
      {"old and behind is declared again", true, 9000, O, 4000, O, 0, 1,
       SlaveNote::kBehindMasterRow},
      {"no master row: active becomes old", false, 0, A, 4000, O, 0, 1, SlaveNote::kNoMasterRow},
      {"no master row: inactive becomes old", false, 0, I, 0, O, 0, 1, SlaveNote::kNoMasterRow},
      {"no master row, already old: plain write", false, 0, O, 55, O, 55, 0, SlaveNote::kNone},
  };
  for (const SlaveAloneCase& c : cases) {
    ClustRecord Sm = Row(A, c.smWrite);
    SlaveAloneDecision d =
        DecideSlaveAlone(c.hasMasterRow ? &Sm : nullptr, Row(c.ssStatus, c.ssWrite));
    EXPECT_EQ(d.status, c.status) << c.name;
    EXPECT_EQ(d.last_writemill, c.lastwrite) << c.name;
    EXPECT_EQ(d.withlastwrite, c.withlastwrite) << c.name;
    EXPECT_EQ(d.note, c.note) << c.name;
  }
}

TEST(MembershipMemberRow, CopyOnTheMastersDatabase) {
  const struct {
    int status, tplstate, want;
    bool tplsync;
  } cases[] = {
      {I, kTplSynced, A, false}, {A, kTplSynced, A, false}, {O, kTplSynced, O, false},
      {A, kTplOld, A, true},     {I, kTplOld, A, true},
  };
  for (const auto& c : cases) {
    MemberMasterDecision d = DecideMemberOnMaster(Row(c.status, 0, c.tplstate));
    EXPECT_EQ(d.status, c.want) << "status " << c.status << " tpl " << c.tplstate;
    EXPECT_EQ(d.tplsync, c.tplsync) << "status " << c.status << " tpl " << c.tplstate;
  }
}

TEST(MembershipMemberRow, CopyOnTheSlavesDatabase) {
  enum MasterCopy { kNeverRead, kEarlierCycle, kThisCycle };
  const struct {
    const char* name;
    int slaveStatus;
    MasterCopy master;
    int masterStatus;
    int want;
    bool copyTemplate;
  } cases[] = {
      {"master's copy wins", I, kThisCycle, A, A, true},
      {"master's old copy wins over active", A, kThisCycle, O, O, true},
      {"master's active copy wins over old", O, kThisCycle, A, A, true},
      {"earlier master's copy still wins over old", O, kEarlierCycle, A, A, false},
      {"earlier master's old copy wins over inactive", I, kEarlierCycle, O, O, false},
      {"never read: inactive becomes active", I, kNeverRead, 0, A, false},
      {"never read: old stays", O, kNeverRead, 0, O, false},
  };
  for (const auto& c : cases) {
    ClustRecord M = Row(c.masterStatus, 0);
    MemberSlaveDecision d = DecideMemberOnSlave(
        Row(c.slaveStatus, 0), c.master == kNeverRead ? nullptr : &M, c.master == kThisCycle);
    EXPECT_EQ(d.status, c.want) << c.name;
    EXPECT_EQ(d.copyTemplate, c.copyTemplate) << c.name;
  }
}

}  // namespace
}  // namespace qor
