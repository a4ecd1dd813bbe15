// Every change to the clusters table: the heartbeat's insert and update of a node's own row, the
// monitors' status switch, ageing of a row's status or template state, the record of a finished
// template pull, removal of rows, emptying the table, and the sweep of members that stopped
// writing. Each builds one statement, runs it in the database it is given (store/pools.h PoolOf:
// never in the other one when that one does not answer), and reads nothing back. Returns 500
// without a usable connection, 501 when a value cannot be placed in the statement (refused, never
// cut), else 0 (also after a failed statement, which is logged).
#pragma once

#include <cstdint>

#include "store/clust_record.h"
#include "store/cluster_query.h"
#include "store/pools.h"

namespace qor {

// The heartbeat's writes of this node's own row (InsertClusterSql, UpdateClusterSql) into one
// database. A write succeeded when the database accepted the statement; one without a usable
// connection, or refused before it was sent, failed.
struct OwnRowWrites {
  bool lastOk = false;
  int64_t lastMicros = 0;  // the last write's time, taking the connection included
  int64_t ok = 0;
  int64_t failed = 0;
};

// Statement texts, exactly as the database's log shows them; false when a value does not fit.
bool InsertStatement(SqlText& sql, const ClustRecord& rec, int64_t mill);
bool UpdateStatement(SqlText& sql, const ClustRecord& rec, int withlastwrite, RowForm form);
bool RemoveStatement(SqlText& sql, const char* selector);
bool SweepStatement(SqlText& sql, int minutes);

// The writes of this node's own row; each is tallied in writes, at Index(db).
int InsertClusterSql(Db db, int64_t mill, ClustRecord rec, OwnRowWrites* writes);
// Sets rec.role_id from its role text first. The record's id must have been read from db.
int UpdateClusterSql(Db db, ClustRecord& rec, int withlastwrite, RowForm form,
                     OwnRowWrites* writes);
// The same write of a row read from the other database, under id, the number its host has in db:
// each database numbers its rows itself. rec stays as read.
int UpdateClusterSql(Db db, int id, const ClustRecord& rec, int withlastwrite, RowForm form,
                     OwnRowWrites* writes);
int SetStatusClusterSql(Db db, int id, int status);
int SetOldClusterSvrSql(Db db, const char* host);
int SetTplOldClusterSvrSql(Db db, const char* host);
int UpdateTplsyncSql(Db db, const char* host, int64_t syncmill, int state);
// selector: "-all" or "" every row, "-alldummy" the test nodes (qordummyd...), else one host.
int RemoveClusterSvrsSql(Db db, const char* selector);
int ClearClusterSql(Db db);
// Deletes member rows unchanged for cnf.clustsweep minutes.
int SweepClustersql(Db db);

}  // namespace qor
