// The take-overs of one monitor pass, run at its end, unless this server is probably the one cut
// off: every other server silent in the pass and its peer (the slave for the master, the master
// for the slave) not answering ping. Then the statuses are written as always, but the take-overs
// are held: dropped for servers that come back, run for those still silent once any other server
// is seen writing again. Single-threaded; the held take-overs live as long as the process.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "store/clust_record.h"

namespace qor {

class PassTakeovers {
 public:
  // step: the error line's name and step, as "monitoronmaster(4)".
  explicit PassTakeovers(const char* step) : step_(step) {}

  // Every row of another server that the pass judged, with its verdict.
  void Saw(const ClustRecord& row, bool silent);
  // A take-over the pass decided, in the order found.
  void Due(const ClustRecord& row) { due_.push_back(row); }
  // Runs the due and released take-overs, or holds them. peerAnswers is asked only when every
  // other server was silent; peer names it in the error line.
  void Finish(const std::function<bool()>& peerAnswers, const char* peer);

 private:
  const char* step_;
  int others_ = 0;
  int silent_ = 0;
  std::vector<std::string> fresh_;  // host names seen writing in this pass
  std::vector<ClustRecord> due_;
};

}  // namespace qor
