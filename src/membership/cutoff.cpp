#include "membership/cutoff.h"

#include <algorithm>

#include "base/log.h"
#include "membership/monitor_decision.h"
#include "membership/nodedown.h"

namespace qor {

namespace {

// Take-overs held while this server looked cut off, oldest first; at most one per server, and
// no more than the table has rows.
std::vector<ClustRecord> held;
// The second at which, with take-overs held, another server was first seen writing again; 0 while
// none has been.
int64_t othersBack = 0;

bool Holds(const std::string& hostname) {
  return std::any_of(held.begin(), held.end(),
                     [&](const ClustRecord& r) { return hostname == r.hostname.c_str(); });
}

}  // namespace

void PassTakeovers::Saw(const ClustRecord& row, bool silent) {
  ++others_;
  if (silent || row.status != kStatusActive) {
    ++silent_;
  } else {
    fresh_.emplace_back(row.hostname.c_str());
  }
}

void PassTakeovers::Finish(const std::function<bool()>& peerAnswers, const char* peer) {
  // The peer is pinged only when everyone else was silent: a ping of a silent peer costs seconds.
  if (CutOff(others_, silent_, false) && CutOff(others_, silent_, peerAnswers())) {
    int added = 0;
    for (const ClustRecord& r : due_) {
      if (Holds(r.hostname.c_str()) || static_cast<int>(held.size()) >= Maxcluster) continue;
      held.push_back(r);
      ++added;
    }
    othersBack = 0;
    if (added > 0) {
      LogError(
          "%s all %d other servers are silent and %s does not answer: this server is probably "
          "the one cut off, %d take-overs held",
          step_, others_, peer, added);
    }
    return;
  }
  // Whoever was held and writes again was only cut off from this server; whoever is still silent
  // 15 s after another server came back is taken over, in the order found, before this pass's own.
  if (!held.empty() && !fresh_.empty() && othersBack == 0) othersBack = now_;
  bool release = othersBack != 0 && IsSilent(now_ - othersBack);
  std::vector<ClustRecord> run, keep;
  for (const ClustRecord& r : held) {
    if (std::find(fresh_.begin(), fresh_.end(), r.hostname.c_str()) != fresh_.end()) {
      LogNotice("%s %s(%s) writes again, its held take-over dropped", step_, r.hostname.c_str(),
                r.ipaddress.c_str());
    } else {
      (release ? run : keep).push_back(r);
    }
  }
  held = keep;
  if (held.empty()) othersBack = 0;
  for (const ClustRecord& r : due_) {
    if (!Holds(r.hostname.c_str())) run.push_back(r);
  }
  for (const ClustRecord& r : run) Qordown(r);
}

void DropHeldTakeovers(const char* step) {
  for (const ClustRecord& r : held) {
    LogNotice("%s held take-over of %s(%s) dropped: the master answers again", step,
              r.hostname.c_str(), r.ipaddress.c_str());
  }
  held.clear();
  othersBack = 0;
}

}  // namespace qor
