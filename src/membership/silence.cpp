#include "membership/silence.h"

#include "base/log.h"
#include "config/qorconf.h"
#include "membership/monitor_decision.h"
#include "store/pools.h"

namespace qor {

namespace {

// The latest outage of each database (0 the master's, 1 the slave's) already named in a notice.
int64_t reported[2] = {0, 0};

}  // namespace

Silence::Silence(int side, int64_t now, const char* step) : side_(side), now_(now), step_(step) {}

int64_t Silence::Judge(const ClustRecord& row, int64_t* notAnswering, int64_t* outage) const {
  *notAnswering = DbOutages(side_).Within(row.updated_at, now_, outage);
  return SilentFor(now_, row.updated_at, *notAnswering);
}

int64_t Silence::For(const ClustRecord& row) {
  if (side_ < 0) return 0;
  int64_t notAnswering = 0, outage = 0;
  int64_t silentFor = Judge(row, &notAnswering, &outage);
  if (IsSilent(Age(row)) && !IsSilent(silentFor)) {
    ++held_;
    outage_ = outage;
    seconds_ = notAnswering;
  }
  return silentFor;
}

bool Silence::HeldBack(const ClustRecord& row) const {
  int64_t notAnswering = 0, outage = 0;
  return side_ >= 0 && IsSilent(Age(row)) && !IsSilent(Judge(row, &notAnswering, &outage));
}

Silence::~Silence() {
  if (held_ == 0 || side_ < 0 || reported[side_] == outage_) return;
  reported[side_] = outage_;
  LogNotice(
      "%s %d rows not updated for more than 15 seconds held back: the database on %s did not "
      "answer for %ld seconds of that time",
      step_, held_, side_ == 0 ? cnf.clustmaster.c_str() : cnf.clustslave.c_str(),
      static_cast<long>(seconds_));
}

}  // namespace qor
