#include "membership/monitor_decision.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace qor {
namespace {

constexpr int A = kStatusActive, I = kStatusInactive, O = kStatusOld;
constexpr int kSlave = kRoleIdSlave, kMember = kRoleIdMember;

ClustRecord Row(int roleId, int status, int64_t lastwrite) {
  ClustRecord r;
  r.role_id = roleId;
  r.status = status;
  r.last_writemill = lastwrite;
  return r;
}

// What a verdict should say; "-" cases are fresh rows: nothing but their status.
struct Want {
  bool silent;
  int status;
  bool changed, takeover, old;
};

void Expect(const MonitorVerdict& v, const Want& w, const char* name) {
  EXPECT_EQ(v.silent, w.silent) << name;
  EXPECT_EQ(v.status, w.status) << name;
  EXPECT_EQ(v.changed, w.changed) << name;
  EXPECT_EQ(v.takeover, w.takeover) << name;
  EXPECT_EQ(v.old, w.old) << name;
}

TEST(MonitorRules, SilenceCountsFromTheLaterOfTheRowAndTheDatabasesReturn) {
  EXPECT_EQ(SilentFor(1000, 980, 0), 20);
  EXPECT_EQ(SilentFor(1000, 980, 990), 10);
  EXPECT_EQ(SilentFor(1000, 995, 990), 5);
  EXPECT_FALSE(IsSilent(15));
  EXPECT_TRUE(IsSilent(16));
}

TEST(MonitorOnMasterRules, TransitionTable) {
  struct {
    const char* name;
    int roleId, status;
    int64_t lastwrite, silentFor;
    Want want;
  } cases[] = {
      {"member written 15 s ago is fresh", kMember, A, 0, 15, {false, A, false, false, false}},
      {"member silent 16 s goes inactive", kMember, A, 0, 16, {true, I, true, true, false}},
      {"old member goes inactive without take-over",
       kMember,
       O,
       0,
       16,
       {true, I, true, false, false}},
      {"inactive member: line only", kMember, I, 0, 99, {true, I, false, false, false}},
      {"unknown role is a member", 0, A, 0, 16, {true, I, true, true, false}},
      {"slave level with the master goes inactive",
       kSlave,
       A,
       5000,
       16,
       {true, I, true, true, false}},
      {"inactive slave level with the master stays",
       kSlave,
       I,
       7000,
       16,
       {true, I, false, false, false}},
      {"old slave ahead of the master stays", kSlave, O, 7000, 16, {true, O, false, false, false}},
      {"slave behind the master goes old", kSlave, A, 4999, 16, {true, O, true, true, true}},
      {"inactive slave behind goes old, no take-over",
       kSlave,
       I,
       1,
       16,
       {true, O, true, false, true}},
      {"old slave behind stays", kSlave, O, 1, 16, {true, O, false, false, false}},
      {"slave behind but fresh", kSlave, A, 1, 15, {false, A, false, false, false}},
  };
  for (const auto& c : cases) {
    Expect(DecideOnMaster(Row(c.roleId, c.status, c.lastwrite), c.silentFor, 5000), c.want, c.name);
  }
}

TEST(MonitorOnMasterRules, TemplateBehindTheMastersTree) {
  ClustRecord r;
  r.tpl_syncmill = 100;
  EXPECT_TRUE(TemplateBehind(r, 101));
  EXPECT_FALSE(TemplateBehind(r, 100));
}

TEST(MonitorOnSlaveRules, MasterAnswering) {
  struct {
    const char* name;
    int status;
    int64_t mWrite, sWrite, silentFor;
    Want want;
  } cases[] = {
      {"fresh master", A, 1, 9, 15, {false, A, false, false, false}},
      {"equal writes: inactive, not old", A, 5, 5, 16, {true, I, true, true, false}},
      {"inactive master is rewritten", I, 5, 5, 16, {true, I, true, false, false}},
      {"master behind the slave goes old", A, 4, 5, 16, {true, O, true, true, true}},
      {"inactive master behind goes old", I, 4, 5, 16, {true, O, true, false, true}},
  };
  for (const auto& c : cases) {
    Expect(DecideMasterAnswering(Row(0, c.status, c.mWrite), Row(0, A, c.sWrite), c.silentFor),
           c.want, c.name);
  }
}

TEST(MonitorOnSlaveRules, MasterSilentFromTheSlavesDatabase) {
  struct {
    const char* name;
    bool master;
    int status;
    int64_t masterWrite, slaveWrite, silentFor;
    Want want;
  } cases[] = {
      {"fresh master", true, A, 5, 5, 15, {false, A, false, false, false}},
      {"equal writes: inactive", true, A, 5, 5, 16, {true, I, true, true, false}},
      {"no slave row (0): inactive", true, A, 5, 0, 16, {true, I, true, true, false}},
      {"inactive master rewritten", true, I, 5, 5, 16, {true, I, true, false, false}},
      {"master behind the slave goes old", true, A, 4, 5, 16, {true, O, true, true, true}},
      {"old master is not judged", true, O, 4, 5, 99, {false, O, false, false, false}},
      {"active member silent", false, A, 0, 0, 16, {true, I, true, true, false}},
      {"active member fresh", false, A, 0, 0, 15, {false, A, false, false, false}},
      {"inactive member left alone", false, I, 0, 0, 99, {false, I, false, false, false}},
      {"old member left alone", false, O, 0, 0, 99, {false, O, false, false, false}},
  };
  for (const auto& c : cases) {
    ClustRecord r = Row(0, c.status, c.masterWrite);
    MonitorVerdict v = c.master ? DecideMasterSilent(r, c.silentFor, c.masterWrite, c.slaveWrite)
                                : DecideMemberFromSlave(r, c.silentFor);
    Expect(v, c.want, c.name);
  }
}

}  // namespace
}  // namespace qor
