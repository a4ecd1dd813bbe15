// The take-overs of one monitor pass, run at its end, unless this server is probably the one cut
// off: every other server silent in the pass and its peer (the slave for the master, the master
// for the slave) not answering ping. Then the statuses are written as always, but the take-overs
// are held: dropped for servers that come back, run for those still silent more than 15 s after
// any other server was seen writing again (servers come back one by one as a link returns).
// Single-threaded; the held take-overs live as long as the process.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "store/clust_record.h"

namespace qor {

class PassTakeovers {
 public:
  // step: the error line's name and step, as "monitoronmaster(4)"; now: the pass's clock.
  PassTakeovers(const char* step, int64_t now) : step_(step), now_(now) {}

  // Every row of another server that the pass judged, with its verdict. Only an active row that
  // is not silent shows its server writing: a status this server wrote stamps the row too.
  void Saw(const ClustRecord& row, bool silent);
  // A take-over the pass decided, in the order found.
  void Due(const ClustRecord& row) { due_.push_back(row); }
  // Runs the due and released take-overs, or holds them. peerAnswers is asked only when every
  // other server was silent; peer names it in the error line.
  void Finish(const std::function<bool()>& peerAnswers, const char* peer);

 private:
  const char* step_;
  int64_t now_;
  int others_ = 0;
  int silent_ = 0;
  std::vector<std::string> fresh_;  // host names seen writing in this pass
  std::vector<ClustRecord> due_;
};

// The slave's monitor, once the master answers again and keeps the watch: every held take-over
// is dropped (the master judges the members, and the slave judges the master from its database).
void DropHeldTakeovers(const char* step);

}  // namespace qor
