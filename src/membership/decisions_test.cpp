// One table per decision of the heartbeats and the monitors: each row is a case that a wrong
// comparison, a wrong bound or a swapped status would turn.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "membership/heartbeat_decision.h"
#include "membership/monitor_decision.h"

namespace qor {
namespace {

constexpr int A = kStatusActive, I = kStatusInactive, O = kStatusOld;

ClustRecord Row(int status, int64_t lastwrite, int roleId = kRoleIdMember, int tpl = 0) {
  return {.role_id = roleId, .status = status, .last_writemill = lastwrite, .tpl_syncstate = tpl};
}

// Every field of a decision: the status and the names of the flags set, "silent 200 changed".
std::string Fields(const MonitorVerdict& v) {
  return (v.silent ? "silent " : "") + std::to_string(v.status) + (v.changed ? " changed" : "") +
         (v.takeover ? " takeover" : "") + (v.old ? " old" : "");
}

TEST(Decisions, Monitors) {
  const int S = kRoleIdSlave;
  // Each row: the verdict, then the one expected (statuses as the table holds them: 100 active,
  // 200 inactive, 300 old). A server is silent past 15 s; one that was active is taken over; a
  // slave (or master) that stopped writing before its peer becomes old.
  struct {
    MonitorVerdict got;
    std::string want;
  } rows[] = {
      // Members on the master: fresh, silent, silent already old or inactive.
      {DecideOnMaster(Row(A, 0), 15, 0), "100"},
      {DecideOnMaster(Row(A, 0), 16, 0), "silent 200 changed takeover"},
      {DecideOnMaster(Row(O, 0), 16, 0), "silent 200 changed"},
      {DecideOnMaster(Row(I, 0), 99, 0), "silent 200"},
      // The slave on the master: level with the master's last write, behind it, then the same
      // already inactive or old.
      {DecideOnMaster(Row(A, 5000, S), 16, 5000), "silent 200 changed takeover"},
      {DecideOnMaster(Row(A, 4999, S), 16, 5000), "silent 300 changed takeover old"},
      {DecideOnMaster(Row(I, 1, S), 16, 5000), "silent 300 changed old"},
      {DecideOnMaster(Row(O, 1, S), 16, 5000), "silent 300"},
      {DecideOnMaster(Row(I, 7000, S), 16, 5000), "silent 200"},
      // The master answering the slave's ping: fresh, silent behind the slave, silent ahead of it.
      {DecideMasterAnswering(Row(A, 1), Row(A, 2), 15), "100"},
      {DecideMasterAnswering(Row(A, 1), Row(A, 2), 16), "silent 300 changed takeover old"},
      {DecideMasterAnswering(Row(A, 3), Row(A, 2), 16), "silent 200 changed takeover"},
      // The master silent: old already, behind the slave.
      {DecideMasterSilent(Row(O, 1), 99, 1, 2), "300"},
      {DecideMasterSilent(Row(I, 1), 16, 1, 2), "silent 300 changed old"},
      // Members judged by the slave: active, inactive already.
      {DecideMemberFromSlave(Row(A, 0), 16), "silent 200 changed takeover"},
      {DecideMemberFromSlave(Row(I, 0), 99), "200"},
  };
  for (const auto& r : rows) EXPECT_EQ(Fields(r.got), r.want) << "row " << &r - rows;
  // Time in which the database did not answer is not silence.
  EXPECT_EQ(SilentFor(1000, 980, 0), 20);
  EXPECT_EQ(SilentFor(1000, 980, 10), 10);
  // A row held back for the master's outage counts its age once the slave's database says the
  // slave judged it; only members are so taken.
  struct {
    const char* name;
    ClustRecord row;
    int64_t age, silentFor;
    bool inactiveOnSlave;
    int64_t judged;
  } held[] = {
      {"held back, judged by the slave", Row(A, 0), 40, 5, true, 40},
      {"held back, active on the slave", Row(A, 0), 40, 5, false, 5},
      {"fresh either way", Row(A, 0), 10, 10, true, 10},
      {"the slave's own row", Row(A, 0, S), 40, 5, true, 5},
  };
  for (const auto& h : held) {
    EXPECT_EQ(SilenceOnMaster(h.row, h.age, h.silentFor, h.inactiveOnSlave), h.judged) << h.name;
  }

  ClustRecord behind = Row(A, 0), marked = Row(A, 0, kRoleIdMember, kTplOld);
  behind.tpl_syncmill = marked.tpl_syncmill = 4;
  struct {
    const char* name;
    const ClustRecord& row;
    int64_t masterTpl;
    bool due;
  } marks[] = {
      {"copy as new as the tree", behind, 4, false},
      {"copy behind", behind, 5, true},
      {"copy behind, marked already", marked, 5, false},
  };
  for (const auto& m : marks) EXPECT_EQ(TemplateMarkDue(m.row, m.masterTpl), m.due) << m.name;

  const MonitorVerdict down = DecideOnMaster(Row(A, 0), 16, 0);
  struct {
    const char* name;
    MonitorVerdict v;
    ClustRecord row;
    int slaveCopy;
    bool due;
  } takeovers[] = {
      {"member, slave's copy active", down, Row(A, 0), A, true},
      {"member, slave's copy not read", down, Row(A, 0), 0, true},
      {"member the slave took over", down, Row(A, 0), I, false},
      {"the slave itself, its copy old", down, Row(A, 0, S), O, true},
  };
  for (const auto& t : takeovers) EXPECT_EQ(TakeoverDue(t.v, t.row, t.slaveCopy), t.due) << t.name;
}

auto Fields(const MasterRowDecision& d) {
  return std::tuple(static_cast<int>(d.action), d.status, d.last_writemill, d.withlastwrite,
                    static_cast<int>(d.note));
}

TEST(Decisions, Heartbeats) {
  EXPECT_TRUE(InsertAllowed(64));
  EXPECT_FALSE(InsertAllowed(65));
  EXPECT_EQ(Reactivated(I), A);
  EXPECT_EQ(Reactivated(O), O);
  using enum MasterAction;
  using enum MasterNote;
  const ClustRecord Mm = Row(I, 10), copy = Row(A, 10), oldCopy = Row(O, 5), later = Row(A, 11);
  // Each row: the decision, then the one expected.
  struct {
    MasterRowDecision got, want;
  } rows[] = {
      // The slave's server silent: the row level with the slave's, then behind it.
      {DecideMasterRow(Mm, Row(A, 5), nullptr, false, 0),
       {.action = kWriteMasterOnly, .status = A, .last_writemill = 10}},
      {DecideMasterRow(Mm, Row(A, 11), nullptr, false, 0),
       {.action = kWriteMasterOnly, .status = O, .withlastwrite = 1, .note = kBehindAlone}},
      // The slave's database without this row's copy, with several.
      {DecideMasterRow(Mm, Row(A, 5), nullptr, true, 0),
       {.action = kInsertIntoSlave, .status = I, .last_writemill = 10, .withlastwrite = 1}},
      {DecideMasterRow(Mm, Row(A, 5), &copy, true, 2),
       {.action = kWriteMasterOnly, .status = A, .last_writemill = 10}},
      // One copy: old, written later, the slave's own row written later, all in order.
      {DecideMasterRow(Mm, Row(A, 5), &oldCopy, true, 1),
       {.action = kWriteBoth, .status = O, .withlastwrite = 1, .note = kSlaveCopyOld}},
      {DecideMasterRow(Mm, Row(A, 5), &later, true, 1),
       {.action = kWriteBoth, .status = O, .withlastwrite = 1, .note = kBehindSlaveCopy}},
      {DecideMasterRow(Mm, Row(A, 11), &copy, true, 1),
       {.action = kWriteBoth, .status = O, .withlastwrite = 1, .note = kBehindSlaveRow}},
      {DecideMasterRow(Mm, Row(A, 5), &copy, true, 1),
       {.action = kWriteBoth, .status = A, .last_writemill = 10}},
  };
  for (const auto& r : rows) EXPECT_EQ(Fields(r.got), Fields(r.want)) << "row " << &r - rows;

  SlavePairDecision p = DecideSlavePair(Row(A, 5), Row(I, 5, 0, kTplOld));
  EXPECT_EQ(p.status, A);
  EXPECT_TRUE(p.noteReactivated && p.tplsync);
  p = DecideSlavePair(Row(A, 5), Row(I, 4));
  EXPECT_EQ(p.status, I) << "a slave row behind the master's stays inactive";
  EXPECT_FALSE(p.tplsync);

  const ClustRecord Sm = Row(A, 10);
  SlaveAloneDecision s = DecideSlaveAlone(nullptr, Row(A, 7));
  EXPECT_EQ(s.status, O);
  EXPECT_EQ(s.withlastwrite, 1);
  EXPECT_EQ(s.note, SlaveNote::kNoMasterRow);
  EXPECT_EQ(DecideSlaveAlone(nullptr, Row(O, 7)).note, SlaveNote::kNone);
  EXPECT_EQ(DecideSlaveAlone(&Sm, Row(I, 10)).status, A);
  s = DecideSlaveAlone(&Sm, Row(A, 9));
  EXPECT_EQ(s.status, O);
  EXPECT_EQ(s.note, SlaveNote::kBehindMasterRow);

  MemberMasterDecision m = DecideMemberOnMaster(Row(I, 0, kRoleIdMember, kTplOld));
  EXPECT_EQ(m.status, A);
  EXPECT_TRUE(m.tplsync);
  EXPECT_EQ(DecideMemberOnSlave(Row(I, 0), nullptr, false).status, A);
  const ClustRecord onMaster = Row(I, 0);
  MemberSlaveDecision ms = DecideMemberOnSlave(Row(A, 0), &onMaster, true);
  EXPECT_EQ(ms.status, I) << "the master's copy wins";
  EXPECT_TRUE(ms.copyTemplate);
}

}  // namespace
}  // namespace qor
