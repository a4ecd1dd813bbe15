// The monitors' verdict on one row, apart from its effects: a pure function of what this watcher
// observed (the row's silence in each database it could read, the other watcher's verdict in the
// other database, the pass's cut-off guard and mass-silence brake) returning what to write,
// whether to take the server over, hold it or leave it, and which lines to log. No process-wide
// state, no clock: every time is the caller's.
#pragma once

#include <cstdint>
#include <vector>

#include "membership/observation.h"
#include "store/clust_record.h"

namespace qor {

// Held take-overs of a mass silence run without the peer's confirmation once the silence has
// lasted this long while this watcher still sees some server writing: a rack that really failed
// is taken over a minute late rather than never.
constexpr int64_t kBrakeReleaseMs = 60 * 1000;

// --- The status a silent row gets, by who judges it from where (the Detected_ kind).

struct MonitorVerdict {
  bool silent = false;    // the Detected_ line is due
  int status = 0;         // the decided status
  bool changed = false;   // the decided status is to be written
  bool takeover = false;  // the server was active: Qordown
  bool old = false;       // its database is declared old: DB_OLD_STAT_ and the notice
};

// The master, for each row of its own database that is not a master row: a slave that stopped
// writing before the master did becomes old (300), others inactive.
MonitorVerdict DecideOnMaster(const ClustRecord& row, bool silent, int64_t masterLastWriteMill);
// The slave, on the master's row M (status 100 or 200) as the master's database holds it, with
// the slave's row S from there. A stale M is rewritten even when it stays 200.
MonitorVerdict DecideMasterAnswering(const ClustRecord& M, const ClustRecord& S, bool silent);
// The slave, on the master's row R as its own database holds it, the master's host or database
// silent; the two last_writemill values as the slave's database holds them.
MonitorVerdict DecideMasterSilent(const ClustRecord& R, bool silent, int64_t masterLastWriteMill,
                                  int64_t slaveLastWriteMill);
// The slave, on a member's (or other) row from its own database: only active rows are judged.
MonitorVerdict DecideMemberFromSlave(const ClustRecord& row, bool silent);

// The row's template copy is older than the master's tree and not yet marked out of date. The mark
// stamps the row's updated_at: made on every pass, it would hide a dead server from any reader
// that judges by age.
bool TemplateMarkDue(const ClustRecord& row, int64_t masterTplUpdateMill);

// --- The pass's guard and brake, from every row this watcher judges in the pass.

struct GuardRow {
  bool everWriting = false;  // seen writing since this watcher started
  bool writing = false;      // seen writing within kWritingMs
  bool silent = false;       // silent past kSilentMs in the judged database
  bool justSilent = false;   // went silent within the last kSilentMs, taken over or not
  int status = 0;            // as read
};

struct PassGuard {
  int others = 0;       // servers that were writing: active rows once seen changing
  int writing = 0;      // of those, still writing
  int silent = 0;       // of those, silent now
  bool cutOff = false;  // nobody writing and the peer silent: this watcher is the one cut off
  bool brake = false;   // more than half of them silent at once
};

// peerAnswers is asked only when nobody is writing: a ping of a silent peer costs seconds.
template <class PeerAnswers>
PassGuard GuardOf(const std::vector<GuardRow>& rows, PeerAnswers peerAnswers);

// --- The verdict.

enum class Takeover {
  kNone,         // nothing to take over (fresh, or not active when found silent)
  kRun,          // run the take-over now
  kHold,         // hold it: cut off, or a mass silence the peer cannot confirm yet
  kPeerDone,     // the other watcher took it over already: its status only
  kOneDb,        // it still writes into another database: reported, not taken over
  kMaintenance,  // marked for maintenance: its status as the rules say, no take-over
};

struct RowSeen {
  int64_t silentMs = 0;        // verdict silence in the judged database (VerdictSilenceMs)
  int64_t rawSilentMs = 0;     // observed silence there, own writes not restarting it
  int64_t otherSilentMs = -1;  // observed silence in the other database; -1: not read there
  int otherStatus = 0;         // its status in the other database; 0: not read there
  bool otherWriting = false;   // seen changing there within kWritingMs
  int status = 0;              // its status in the judged database
  bool member = false;         // neither the master's nor the slave's row
  bool held = false;           // its take-over is held already
  bool maintenance = false;    // marked for maintenance, the mark not expired
};

struct RowVerdict {
  MonitorVerdict decided;  // status, Detected_ and DB_OLD_STAT_ lines
  bool logDetected = false;
  bool write = false;  // write decided.status
  Takeover takeover = Takeover::kNone;
};

// decide: one of the Decide* above, called with the row's silence.
template <class Decide>
RowVerdict Judge(const RowSeen& seen, const PassGuard& guard, bool someoneWriting, Decide decide);

// A member whose silence this watcher has observed for a while, without a change, that the other
// watcher already holds inactive or old in its database: judged before 15 s of observation (after
// this watcher's start, or its database's return), its status only.
bool AdoptsPeerVerdict(const RowSeen& seen);

// ------------------------------------------------------------------------------------------------

template <class PeerAnswers>
PassGuard GuardOf(const std::vector<GuardRow>& rows, PeerAnswers peerAnswers) {
  PassGuard g;
  int active = 0;  // active rows, seen writing or not
  for (const GuardRow& r : rows) {
    active += r.status == kStatusActive ? 1 : 0;
    // Rows at 200 or 300, and rows never seen changing (left over, or not yet observed), are no
    // evidence either way; but a server taken over a moment ago still went silent in the same
    // window as the rest, and counts for the brake.
    if (!r.everWriting || (r.status != kStatusActive && !r.justSilent)) continue;
    ++g.others;
    g.writing += r.writing ? 1 : 0;
    g.silent += r.silent ? 1 : 0;
  }
  // With one other server (a master and a slave alone) there is no third view to tell a dead
  // peer from a cut-off self. The active rows count here, seen writing or not: a watcher cut off
  // right after its start has seen few or none write, and is no less cut off.
  g.cutOff = active >= 2 && g.writing == 0 && !peerAnswers();
  g.brake = g.others >= 2 && 2 * g.silent > g.others;
  return g;
}

// The whole rule, in the order it is applied:
//
//   observed                                   | Detected_ | status write | take-over
//   -------------------------------------------+-----------+--------------+-----------
//   fresh in the judged database               | no        | no           | -
//   member fresh, peer's copy 200/300, quiet   | yes       | yes          | kPeerDone
//   silent here, writing in the other database | no        | no           | kOneDb
//   silent here, not yet 15 s in the other     | no        | no           | -
//   silent, not active when found              | yes       | as decided   | -
//   member, peer's copy 200/300                | yes       | yes          | kPeerDone
//   marked for maintenance                     | yes       | as decided   | kMaintenance
//   silent, this watcher cut off               | once      | no           | kHold
//   silent, mass silence, peer's copy unread   | once      | no           | kHold
//     ... someone writing and silent >= 60 s   | yes       | yes          | kRun
//   silent otherwise                           | yes       | yes          | kRun
template <class Decide>
RowVerdict Judge(const RowSeen& seen, const PassGuard& guard, bool someoneWriting, Decide decide) {
  RowVerdict v;
  bool silentHere = seen.silentMs > kSilentMs;
  if (!silentHere) {
    if (!AdoptsPeerVerdict(seen)) return v;
    v.decided = decide(true);
    v.decided.takeover = false;
    v.logDetected = v.write = true;
    v.takeover = Takeover::kPeerDone;
    return v;
  }
  // Still writing into the other database: reported. Only quieter there so far (its last write
  // reached the other database a little later): judged at a later pass.
  if (seen.otherSilentMs >= 0 && seen.otherSilentMs <= kSilentMs) {
    if (seen.otherWriting) v.takeover = Takeover::kOneDb;
    return v;
  }
  v.decided = decide(true);
  v.logDetected = true;
  v.write = v.decided.changed;
  if (!v.decided.takeover) return v;
  bool peerDone =
      seen.member && (seen.otherStatus == kStatusInactive || seen.otherStatus == kStatusOld);
  bool confirmed = seen.otherSilentMs > kSilentMs;
  bool released = someoneWriting && seen.rawSilentMs >= kBrakeReleaseMs;
  if (peerDone) {
    v.takeover = Takeover::kPeerDone;
    v.write = true;
  } else if (seen.maintenance) {
    v.takeover = Takeover::kMaintenance;
  } else if (guard.cutOff || (guard.brake && !confirmed && !released)) {
    // Held: no status either, so that the other watcher reads no verdict that was not carried out.
    v.takeover = Takeover::kHold;
    v.write = false;
    v.logDetected = !seen.held;
  } else {
    v.takeover = Takeover::kRun;
  }
  return v;
}

}  // namespace qor
