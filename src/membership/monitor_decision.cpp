#include "membership/monitor_decision.h"

namespace qor {

int64_t SilentFor(int64_t now, int64_t updatedAt, int64_t notAnswering) {
  return now - updatedAt - notAnswering;
}

bool IsSilent(int64_t silentFor) {
  return silentFor > kSilentSeconds;
}

namespace {

// A silent server judged against the other database's side: behind means its database stopped
// taking writes before the other one did, so it is old (300) rather than inactive (200).
MonitorVerdict Judged(int status, bool behind) {
  MonitorVerdict v;
  v.silent = true;
  v.takeover = status == kStatusActive;
  v.old = behind;
  v.status = behind ? kStatusOld : kStatusInactive;
  v.changed = true;
  return v;
}

MonitorVerdict Fresh(int status) {
  MonitorVerdict v;
  v.status = status;
  return v;
}

}  // namespace

MonitorVerdict DecideOnMaster(const ClustRecord& row, int64_t silentFor,
                              int64_t masterLastWriteMill) {
  if (!IsSilent(silentFor)) return Fresh(row.status);
  MonitorVerdict v = Fresh(row.status);
  v.silent = true;
  if (row.role_id == kRoleIdSlave) {
    if (row.last_writemill >= masterLastWriteMill) {
      if (row.status == kStatusActive) v = Judged(row.status, false);
    } else if (row.status != kStatusOld) {
      v = Judged(row.status, true);
    }
    return v;
  }
  // Members and rows of unknown roles: an old row goes to inactive without a take-over.
  if (row.status != kStatusInactive) v = Judged(row.status, false);
  return v;
}

bool TemplateMarkDue(const ClustRecord& row, int64_t masterTplUpdateMill) {
  return row.tpl_syncmill < masterTplUpdateMill && row.tpl_syncstate != kTplOld;
}

int64_t SilenceOnMaster(const ClustRecord& row, int64_t age, int64_t silentFor,
                        bool inactiveOnSlave) {
  bool member = row.role_id != kRoleIdMaster && row.role_id != kRoleIdSlave;
  return member && inactiveOnSlave && IsSilent(age) && !IsSilent(silentFor) ? age : silentFor;
}

bool CutOff(int others, int silentOthers, bool peerAnswers) {
  return others >= 2 && silentOthers == others && !peerAnswers;
}

bool TakeoverDue(const MonitorVerdict& v, const ClustRecord& row, int slaveCopyStatus) {
  if (!v.takeover) return false;
  if (row.role_id == kRoleIdSlave) return true;
  return slaveCopyStatus != kStatusInactive && slaveCopyStatus != kStatusOld;
}

MonitorVerdict DecideMasterAnswering(const ClustRecord& M, const ClustRecord& S,
                                     int64_t silentFor) {
  if (!IsSilent(silentFor)) return Fresh(M.status);
  return Judged(M.status, M.last_writemill < S.last_writemill);
}

MonitorVerdict DecideMasterSilent(const ClustRecord& R, int64_t silentFor,
                                  int64_t masterLastWriteMill, int64_t slaveLastWriteMill) {
  bool watched = R.status == kStatusActive || R.status == kStatusInactive;
  if (!watched || !IsSilent(silentFor)) return Fresh(R.status);
  return Judged(R.status, masterLastWriteMill < slaveLastWriteMill);
}

MonitorVerdict DecideMemberFromSlave(const ClustRecord& row, int64_t silentFor) {
  if (row.status != kStatusActive || !IsSilent(silentFor)) return Fresh(row.status);
  return Judged(row.status, false);
}

}  // namespace qor
