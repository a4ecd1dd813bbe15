#include "membership/monitor_decision.h"

namespace qor {

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

MonitorVerdict DecideOnMaster(const ClustRecord& row, bool silent, int64_t masterLastWriteMill) {
  if (!silent) return Fresh(row.status);
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

MonitorVerdict DecideMasterAnswering(const ClustRecord& M, const ClustRecord& S, bool silent) {
  if (!silent) return Fresh(M.status);
  return Judged(M.status, M.last_writemill < S.last_writemill);
}

MonitorVerdict DecideMasterSilent(const ClustRecord& R, bool silent, int64_t masterLastWriteMill,
                                  int64_t slaveLastWriteMill) {
  bool watched = R.status == kStatusActive || R.status == kStatusInactive;
  if (!watched || !silent) return Fresh(R.status);
  return Judged(R.status, masterLastWriteMill < slaveLastWriteMill);
}

MonitorVerdict DecideMemberFromSlave(const ClustRecord& row, bool silent) {
  if (row.status != kStatusActive || !silent) return Fresh(row.status);
  return Judged(row.status, false);
}

bool TemplateMarkDue(const ClustRecord& row, int64_t masterTplUpdateMill) {
  return row.tpl_syncmill < masterTplUpdateMill && row.tpl_syncstate != kTplOld;
}

bool AdoptsPeerVerdict(const RowSeen& seen) {
  bool peerJudged = seen.otherStatus == kStatusInactive || seen.otherStatus == kStatusOld;
  bool quietThere = seen.otherSilentMs < 0 || seen.otherSilentMs > kWritingMs;
  return seen.member && seen.status == kStatusActive && peerJudged &&
         seen.rawSilentMs > kWritingMs && quietThere;
}

}  // namespace qor
