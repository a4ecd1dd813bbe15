// One table per decision of the heartbeats, the monitors and the cycle loop: each row is a case
// that a wrong comparison, a wrong bound or a swapped status would turn.
#include <gtest/gtest.h>

#include <string>

#include "cli/schedule.h"
#include "membership/heartbeat_decision.h"
#include "membership/monitor_decision.h"

namespace qor {
namespace {

constexpr int A = kStatusActive, I = kStatusInactive, O = kStatusOld;

ClustRecord Row(int status, int64_t lastwrite, int roleId = kRoleIdMember, int tpl = 0) {
  ClustRecord r;
  r.status = status;
  r.last_writemill = lastwrite;
  r.role_id = roleId;
  r.tpl_syncstate = tpl;
  return r;
}

// "200 sct": the decided status, then s(ilent) c(hanged) t(ake-over) o(ld) as they hold.
std::string Says(const MonitorVerdict& v) {
  std::string s = std::to_string(v.status);
  std::string f = std::string(v.silent ? "s" : "") + (v.changed ? "c" : "") +
                  (v.takeover ? "t" : "") + (v.old ? "o" : "");
  return f.empty() ? s : s + " " + f;
}

TEST(Decisions, Monitors) {
  const int S = kRoleIdSlave;
  struct {
    const char* name;
    MonitorVerdict got;
    const char* want;
  } rows[] = {
      {"member 15 s quiet is fresh", DecideOnMaster(Row(A, 0), 15, 0), "100"},
      {"member 16 s quiet", DecideOnMaster(Row(A, 0), 16, 0), "200 sct"},
      {"old member", DecideOnMaster(Row(O, 0), 16, 0), "200 sc"},
      {"inactive member", DecideOnMaster(Row(I, 0), 99, 0), "200 s"},
      {"slave level", DecideOnMaster(Row(A, 5000, S), 16, 5000), "200 sct"},
      {"slave behind", DecideOnMaster(Row(A, 4999, S), 16, 5000), "300 scto"},
      {"inactive slave behind", DecideOnMaster(Row(I, 1, S), 16, 5000), "300 sco"},
      {"old slave", DecideOnMaster(Row(O, 1, S), 16, 5000), "300 s"},
      {"inactive slave level", DecideOnMaster(Row(I, 7000, S), 16, 5000), "200 s"},
      {"master answering, fresh", DecideMasterAnswering(Row(A, 1), Row(A, 2), 15), "100"},
      {"master behind", DecideMasterAnswering(Row(A, 1), Row(A, 2), 16), "300 scto"},
      {"master ahead", DecideMasterAnswering(Row(A, 3), Row(A, 2), 16), "200 sct"},
      {"master silent, old", DecideMasterSilent(Row(O, 1), 99, 1, 2), "300"},
      {"master silent, behind", DecideMasterSilent(Row(I, 1), 16, 1, 2), "300 sco"},
      {"member from slave", DecideMemberFromSlave(Row(A, 0), 16), "200 sct"},
      {"inactive member from slave", DecideMemberFromSlave(Row(I, 0), 99), "200"},
  };
  for (const auto& r : rows) EXPECT_EQ(Says(r.got), r.want) << r.name;
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

std::string Says(const MasterRowDecision& d) {
  return std::to_string(static_cast<int>(d.action)) + " " + std::to_string(d.status) + " " +
         std::to_string(d.last_writemill) + " " + std::to_string(d.withlastwrite) + " " +
         std::to_string(static_cast<int>(d.note));
}

TEST(Decisions, Heartbeats) {
  EXPECT_TRUE(InsertAllowed(64));
  EXPECT_FALSE(InsertAllowed(65));
  EXPECT_EQ(Reactivated(I), A);
  EXPECT_EQ(Reactivated(O), O);
  // Action 0 both, 1 insert into the slave's, 2 master's only; notes as declared.
  const ClustRecord Mm = Row(I, 10), copy = Row(A, 10), oldCopy = Row(O, 5), later = Row(A, 11);
  struct {
    const char* name;
    MasterRowDecision got;
    const char* want;
  } rows[] = {
      {"slave silent, level", DecideMasterRow(Mm, Row(A, 5), nullptr, false, 0), "2 100 10 0 0"},
      {"slave silent, behind", DecideMasterRow(Mm, Row(A, 11), nullptr, false, 0), "2 300 0 1 4"},
      {"no copy there", DecideMasterRow(Mm, Row(A, 5), nullptr, true, 0), "1 200 10 1 0"},
      {"several copies", DecideMasterRow(Mm, Row(A, 5), &copy, true, 2), "2 100 10 0 0"},
      {"copy old", DecideMasterRow(Mm, Row(A, 5), &oldCopy, true, 1), "0 300 0 1 1"},
      {"copy later", DecideMasterRow(Mm, Row(A, 5), &later, true, 1), "0 300 0 1 2"},
      {"slave row later", DecideMasterRow(Mm, Row(A, 11), &copy, true, 1), "0 300 0 1 3"},
      {"kept", DecideMasterRow(Mm, Row(A, 5), &copy, true, 1), "0 100 10 0 0"},
  };
  for (const auto& r : rows) EXPECT_EQ(Says(r.got), r.want) << r.name;

  SlavePairDecision p = DecideSlavePair(Row(A, 5), Row(I, 5, 0, kTplOld));
  EXPECT_EQ(p.status, A);
  EXPECT_TRUE(p.noteReactivated && p.tplsync);
  p = DecideSlavePair(Row(A, 5), Row(I, 4));
  EXPECT_EQ(p.status, I) << "a slave row behind the master's stays inactive";
  EXPECT_FALSE(p.tplsync);

  const ClustRecord Sm = Row(A, 10);
  SlaveAloneDecision s = DecideSlaveAlone(nullptr, Row(A, 7));
  EXPECT_EQ(s.status * 10 + s.withlastwrite, O * 10 + 1);
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

TEST(Decisions, CycleSchedule) {
  // Cycle n -> re-check, slow work, full-row flag of its heartbeat; Tplsync raised in cycle 7.
  auto run = [](int n, int tplCycle) {
    std::string seen;
    LoopCounters c;
    for (int cycle = 1; cycle <= n; ++cycle) {
      CyclePlan plan = PlanCycle(c, cycle == tplCycle ? 1 : 0);
      seen +=
          std::string(plan.recheck ? "r" : "") + (plan.slow ? "s" : "") + (c.full ? "f" : "") + ".";
      FinishCycle(c, plan);
    }
    return seen;
  };
  std::string s = run(320, 0);
  auto at = [&](int cycle) {
    size_t from = 0;
    for (int i = 1; i < cycle; ++i) from = s.find('.', from) + 1;
    return s.substr(from, s.find('.', from) - from);
  };
  struct {
    int cycle;
    const char* want;
  } rows[] = {{1, "f"},    {2, ""},    {31, "r"},  {32, "f"},  {61, "r"},
              {151, "rs"}, {152, "f"}, {181, "r"}, {301, "rs"}};
  for (const auto& r : rows) EXPECT_EQ(at(r.cycle), r.want) << "cycle " << r.cycle;
  s = run(160, 7);
  EXPECT_EQ(at(7), "s") << "a Tplsync request pulls at once";
  EXPECT_EQ(at(37), "r") << "and the schedule starts again from there";
  EXPECT_EQ(at(157), "rs");
}

}  // namespace
}  // namespace qor
