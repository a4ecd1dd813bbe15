// How long a row has been silent, as one monitor pass judges it: counted only over time in which
// the database the rows were read from answered this process, and an operator told once per
// outage when rows that look stale were held back for that reason. Single-threaded.
#pragma once

#include <cstdint>

#include "store/clust_record.h"

namespace qor {

class Silence {
 public:
  // side: the database the pass read its rows from (ActInfo::side); now: the pass's clock;
  // step: the notice's name and step, as "monitoronmaster(2)".
  Silence(int side, int64_t now, const char* step);
  // Logs the notice, when rows were held back in an outage not reported before.
  ~Silence();
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

  // Seconds the row has been silent at now.
  int64_t For(const ClustRecord& row);
  // Seconds since the row's last write, outages included.
  int64_t Age(const ClustRecord& row) const { return now_ - row.updated_at; }
  // Whether the row looks silent by its age only because the database did not answer.
  bool HeldBack(const ClustRecord& row) const;

 private:
  // The row's silence, and the seconds of its age (and the latest outage) the database missed.
  int64_t Judge(const ClustRecord& row, int64_t* notAnswering, int64_t* outage) const;

  int side_;
  int64_t now_;
  const char* step_;
  int held_ = 0;
  int64_t outage_ = 0;   // id of the latest outage that held a row back
  int64_t seconds_ = 0;  // of that row's age, those the database did not answer
};

}  // namespace qor
