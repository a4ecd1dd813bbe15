// One table per decision of the heartbeats and the monitors: each row is a case that a wrong
// comparison, a wrong bound or a swapped status would turn.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "membership/heartbeat_decision.h"
#include "membership/monitor_decision.h"
#include "membership/observation.h"

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
  // 200 inactive, 300 old). A server silent past 15 s that was active is taken over; a slave (or
  // master) that stopped writing before its peer becomes old.
  struct {
    MonitorVerdict got;
    std::string want;
  } rows[] = {
      // Members on the master: fresh, silent, silent already old or inactive.
      {DecideOnMaster(Row(A, 0), false, 0), "100"},
      {DecideOnMaster(Row(A, 0), true, 0), "silent 200 changed takeover"},
      {DecideOnMaster(Row(O, 0), true, 0), "silent 200 changed"},
      {DecideOnMaster(Row(I, 0), true, 0), "silent 200"},
      // The slave on the master: level with the master's last write, behind it, then the same
      // already inactive or old.
      {DecideOnMaster(Row(A, 5000, S), true, 5000), "silent 200 changed takeover"},
      {DecideOnMaster(Row(A, 4999, S), true, 5000), "silent 300 changed takeover old"},
      {DecideOnMaster(Row(I, 1, S), true, 5000), "silent 300 changed old"},
      {DecideOnMaster(Row(O, 1, S), true, 5000), "silent 300"},
      {DecideOnMaster(Row(I, 7000, S), true, 5000), "silent 200"},
      // The master answering the slave's ping: fresh, silent behind the slave, silent ahead of it.
      {DecideMasterAnswering(Row(A, 1), Row(A, 2), false), "100"},
      {DecideMasterAnswering(Row(A, 1), Row(A, 2), true), "silent 300 changed takeover old"},
      {DecideMasterAnswering(Row(A, 3), Row(A, 2), true), "silent 200 changed takeover"},
      // The master silent: old already, behind the slave.
      {DecideMasterSilent(Row(O, 1), true, 1, 2), "300"},
      {DecideMasterSilent(Row(I, 1), true, 1, 2), "silent 300 changed old"},
      // Members judged by the slave: active, inactive already.
      {DecideMemberFromSlave(Row(A, 0), true), "silent 200 changed takeover"},
      {DecideMemberFromSlave(Row(I, 0), true), "200"},
  };
  for (const auto& r : rows) EXPECT_EQ(Fields(r.got), r.want) << "row " << &r - rows;

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
}

// The verdict on an active member, as "detected write takeover" words, from what the watcher
// observed and the pass's guard.
TEST(Decisions, Verdicts) {
  const char* names[] = {"none", "run", "hold", "peer", "onedb", "maintenance"};
  auto words = [&](const RowVerdict& v) {
    return std::string(v.logDetected ? "detected " : "") + (v.write ? "write " : "") +
           names[static_cast<int>(v.takeover)];
  };
  const PassGuard calm{.others = 3, .writing = 2, .silent = 1};
  const PassGuard cut{.others = 3, .writing = 0, .silent = 3, .cutOff = true, .brake = true};
  const PassGuard mass{.others = 3, .writing = 1, .silent = 2, .brake = true};
  struct {
    const char* name;
    RowSeen seen;
    PassGuard guard;
    std::string want;
  } rows[] = {
      {"15 s observed is not silent", {.silentMs = 15000, .status = A, .member = true}, calm,
       "none"},
      {"silent here, other database unread", {.silentMs = 15001, .rawSilentMs = 15001, .status = A,
       .member = true}, calm, "detected write run"},
      {"silent in both", {.silentMs = 16000, .rawSilentMs = 16000, .otherSilentMs = 16000,
       .otherStatus = A, .status = A, .member = true}, calm, "detected write run"},
      {"still writes into the other database", {.silentMs = 40000, .rawSilentMs = 40000,
       .otherSilentMs = 2000, .otherStatus = A, .otherWriting = true, .status = A,
       .member = true}, calm, "onedb"},
      {"quiet but not yet silent in the other", {.silentMs = 17000, .rawSilentMs = 17000,
       .otherSilentMs = 14000, .otherStatus = A, .status = A, .member = true}, calm, "none"},
      {"the peer took it over", {.silentMs = 16000, .rawSilentMs = 16000, .otherSilentMs = 16000,
       .otherStatus = I, .status = A, .member = true}, calm, "detected write peer"},
      {"the peer's copy old, not a member", {.silentMs = 16000, .rawSilentMs = 16000,
       .otherSilentMs = 16000, .otherStatus = I, .status = A}, calm, "detected write run"},
      {"just started, the peer's verdict there", {.silentMs = 7000, .rawSilentMs = 7000,
       .otherSilentMs = 7000, .otherStatus = I, .status = A, .member = true}, calm,
       "detected write peer"},
      {"just started, too soon to adopt", {.silentMs = 4000, .rawSilentMs = 4000,
       .otherStatus = I, .status = A, .member = true}, calm, "none"},
      {"marked for maintenance", {.silentMs = 16000, .rawSilentMs = 16000, .status = A,
       .member = true, .maintenance = true}, calm, "detected write maintenance"},
      {"cut off", {.silentMs = 40000, .rawSilentMs = 40000, .status = A, .member = true}, cut,
       "detected hold"},
      {"cut off, held already", {.silentMs = 40000, .rawSilentMs = 40000, .status = A,
       .member = true, .held = true}, cut, "hold"},
      {"mass silence, unconfirmed", {.silentMs = 20000, .rawSilentMs = 20000, .status = A,
       .member = true}, mass, "detected hold"},
      {"mass silence, confirmed there", {.silentMs = 20000, .rawSilentMs = 20000,
       .otherSilentMs = 20000, .otherStatus = A, .status = A, .member = true}, mass,
       "detected write run"},
      {"mass silence, 60 s with others writing", {.silentMs = 60000, .rawSilentMs = 60000,
       .status = A, .member = true}, mass, "detected write run"},
      {"a judged row is judged again 15 s later", {.silentMs = 3000, .rawSilentMs = 90000,
       .status = I, .member = true}, calm, "none"},
  };
  for (const auto& r : rows) {
    RowVerdict v = Judge(r.seen, r.guard, r.guard.writing > 0,
                         [&](bool s) { return DecideOnMaster(Row(r.seen.status, 0), s, 0); });
    EXPECT_EQ(words(v), r.want) << r.name;
  }
  // A rack of silent servers while nobody writes: held however long.
  RowSeen rack{.silentMs = 600000, .rawSilentMs = 600000, .status = A, .member = true};
  PassGuard alone{.others = 3, .silent = 3, .brake = true};
  EXPECT_EQ(words(Judge(rack, alone, false, [&](bool s) { return DecideOnMaster(Row(A, 0), s, 0); })),
            "detected hold");
}

// The guard counts servers that were writing: rows never seen changing and rows at 200 or 300
// are no evidence; the peer is asked only when nobody writes.
TEST(Decisions, Guard) {
  GuardRow writing{.everWriting = true, .writing = true, .status = A};
  GuardRow silent{.everWriting = true, .silent = true, .status = A};
  GuardRow leftover{.silent = true, .status = I};
  GuardRow neverSeen{.silent = true, .status = A};
  struct {
    const char* name;
    std::vector<GuardRow> rows;
    bool peerAnswers;
    std::string want;  // "others writing silent cut brake asked"
  } rows[] = {
      {"all silent, peer silent", {silent, silent, silent}, false, "3 0 3 cut brake asked"},
      {"all silent, peer answers", {silent, silent, silent}, true, "3 0 3 brake asked"},
      {"one writes", {writing, silent, silent}, false, "3 1 2 brake"},
      {"one of three silent", {writing, writing, silent}, false, "3 2 1"},
      {"leftovers are no others", {silent, writing, leftover, leftover, neverSeen}, false, "2 1 1"},
      {"one taken over a moment ago went silent with the other",
       {GuardRow{.everWriting = true, .silent = true, .justSilent = true, .status = I}, silent,
        writing}, false, "3 1 2 brake"},
      {"a master and a slave alone", {silent}, false, "1 0 1"},
      {"cut off at its start: nobody ever seen writing", {neverSeen, neverSeen}, false,
       "0 0 0 cut asked"},
      {"cut off at its start: one seen writing once", {silent, neverSeen}, false,
       "1 0 1 cut asked"},
  };
  for (const auto& r : rows) {
    bool asked = false;
    PassGuard g = GuardOf(r.rows, [&] {
      asked = true;
      return r.peerAnswers;
    });
    std::string got = std::to_string(g.others) + " " + std::to_string(g.writing) + " " +
                      std::to_string(g.silent) + (g.cutOff ? " cut" : "") +
                      (g.brake ? " brake" : "") + (asked ? " asked" : "");
    EXPECT_EQ(got, r.want) << r.name;
  }
}

// Silence as this watcher observes it, pass by pass: each step reads one row (its updated_at,
// or none when the database could not be read) at a monotonic millisecond, and shows the
// observed silence and whether the server counts as writing.
TEST(Decisions, ObservedSilence) {
  struct Step {
    int64_t ms;
    int64_t updatedAt;  // -1: the database could not be read
    int wrote;          // this watcher wrote the row: 1 a mark, 2 a status, 3 a mark 10 s before
    int64_t silent, verdict;
    bool writing;
    int status = A;  // the row's status as read
  };
  const std::vector<std::pair<const char*, std::vector<Step>>> cases = {
      {"first sight starts the count, a change ends it",
       {{0, 100, 0, 0, 0, false}, {2000, 100, 0, 2000, 2000, false},
        {4000, 102, 0, 0, 0, true}, {11000, 102, 0, 7000, 7000, false},
        {20000, 102, 0, 16000, 16000, false}}},
      {"a stamp another clock made is never compared: a row from the future is silent alike",
       {{0, 9999999, 0, 0, 0, false}, {16001, 9999999, 0, 16001, 16001, false}}},
      {"this watcher's own stamps are no heartbeat",
       {{0, 100, 0, 0, 0, false}, {2000, 101, 1, 2000, 2000, false},
        {16000, 102, 2, 16000, 1, false, I}, {18000, 102, 0, 18000, 2001, false, I},
        {30000, 103, 3, 0, 0, true, I}}},
      {"a row made active again is its server, even right after this watcher's status",
       {{0, 100, 0, 0, 0, false}, {2000, 101, 2, 0, 0, true}}},
      {"time unread is not silence; a long outage starts the count again",
       {{0, 100, 0, 0, 0, false}, {10000, 100, 0, 10000, 10000, false},
        {12000, -1, 0, 10000, 10000, false}, {14000, 100, 0, 10000, 10000, false},
        {16000, -1, 0, 10000, 10000, false}, {40000, 100, 0, 0, 0, false}}},
  };
  for (const auto& [name, steps] : cases) {
    Observations seen;
    ClustRecord row = Row(A, 0);
    row.hostname.set("m1");
    ClustRecord* rows[] = {&row};
    for (const Step& s : steps) {
      if (s.wrote != 0) {
        seen.Wrote(Db::kMaster, "m1", s.ms - (s.wrote == 3 ? 10000 : 1), s.wrote == 2 ? I : 0);
      }
      if (s.updatedAt < 0) {
        seen.Unreadable(Db::kMaster, s.ms);
      } else {
        row.updated_at = s.updatedAt;
        row.status = s.status;
        seen.Read(Db::kMaster, rows, 1, s.ms, true);
      }
      const RowWatch* w = seen.Find(Db::kMaster, "m1");
      ASSERT_NE(w, nullptr) << name;
      EXPECT_EQ(w->silentMs, s.silent) << name << " at " << s.ms;
      EXPECT_EQ(VerdictSilenceMs(*w), s.verdict) << name << " at " << s.ms;
      EXPECT_EQ(seen.Writing("m1", s.ms), s.writing) << name << " at " << s.ms;
    }
  }
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
