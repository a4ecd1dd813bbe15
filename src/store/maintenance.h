// Maintenance marks: a server an operator takes out on purpose is not taken over while marked.
// The marks live in a table of this program's own, qorclustd_maintenance, in both databases
// (the platform's clusters table is not changed); each is made when missing. A mark names its
// server, why, who set it, and since and until when, by the database's own clock, so that it
// expires by itself wherever it is read. Each call reaches the database it names, or fails.
#pragma once

#include <cstdint>
#include <vector>

#include "base/fixed_text.h"
#include "store/clust_record.h"

namespace qor {

struct MaintenanceMark {
  ClustText hostname;
  FixedText<256> reason;
  ClustText markedBy;
  int64_t since = 0, until = 0;  // seconds since the epoch
};

// kDbOk, kDbNoConnection (500) or kDbQueryFailed (501, also for a value that does not fit).
int SetMaintenanceSql(Db db, const char* host, int minutes, const char* reason, const char* by);
int ClearMaintenanceSql(Db db, const char* host);
// Appends db's marks that have not expired, by hostname; a host marked in both is kept once.
int ReadMaintenanceSql(Db db, std::vector<MaintenanceMark>* marks);
// The mark of host among marks, or nullptr.
const MaintenanceMark* MarkOf(const std::vector<MaintenanceMark>& marks, const char* host);

}  // namespace qor
