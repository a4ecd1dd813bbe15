// Reads of the clusters table: GetClusterSql turns a selector word, a "like_" pattern or a host
// name into one SELECT, fills an array of records with the rows and counts them into an ActInfo;
// GetClustCount counts all rows for the cycle loop and the -count command.
#pragma once

#include "base/fixed_text.h"
#include "store/clust_record.h"
#include "store/pools.h"
#include "store/sql_text.h"

namespace qor {

// The statement for selector cond; false when the where clause would not fit its 127 characters
// or a host name or pattern holds a backslash.
bool BuildClusterSelect(SqlText& sql, const char* cond);

// Fills rec from one result row (columns by position, at most 26 used) and adds an active row to
// info's servers and cores. SQL NULL reads as the empty text (0 for numbers); texts are cut at 127.
// updated_at is read as the instant nearest nowSec, the reader's own wall clock.
void FillClustRecord(ClustRecord& rec, int ncols, const char* const* values, ActInfo& info,
                     int64_t nowSec);

// 0 done, 500 no usable connection, 501 the query failed or the selector was refused. Reads db
// through PoolByTarget (the master's falls back to the slave's); dbsvr names it in messages.
int GetClusterSql(const char* dbsvr, const char* cond, ActInfo* info, ClustRecord** records, Db db);

// The database whose rows info counts, which is the one their ids belong to; named when the read
// reached none. A write back by id names it, so that the row read is the row written.
Db ReadDb(const ActInfo& info, Db named);

// Copies at most len characters of src from start on into out (size bytes): 0, or 1 without
// copying when start or len is negative or len exceeds the length of src.
int StrExt(char* out, size_t size, const char* src, int start, int len);

// Rows of the table by the first open pool; the count is written only on success.
int GetClustCountSql(int* count);
// The row count by role, pinging the servers it needs; always 0.
int GetClustCount(int* count);

}  // namespace qor
