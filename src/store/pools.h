// The two connection pools (mpool to the master's database, spool to the slave's), kept in line
// with the servers' reachability (net/ping.h) by ReconnectCluster; and the rules by which every
// statement picks its pool and handles its connection.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/clock.h"
#include "base/fixed_text.h"
#include "store/clust_record.h"
#include "store/zdb_boundary.h"

namespace qor {

// Statuses of every database operation.
constexpr int kDbOk = 0;
constexpr int kDbNoConnection = 500;
constexpr int kDbQueryFailed = 501;

// Pool handles; nullptr when the pool does not exist. Process-wide, as the connections are:
// written only by ReconnectCluster and CloseConnectionPool (and the slow pass, which drops the
// daemon's to open its own); read by every statement through PoolOf and PoolByTarget.
extern QzPool* mpool;
extern QzPool* spool;
// Initial connections of a new pool: 1 for one-shot commands, 5 for the daemon. The reconnect
// notices are logged only at 5. Written at start-up, by the cycle and the slow pass; read by
// ReconnectCluster.
extern int ConnectionPool;

// Begins a cycle: drops the pool of a server that stops answering ping, builds a missing one whose
// server answers (standalone: one pool to dbsvr, no ping). Always 1. It also opens a new round for
// the pools it keeps: within a round, once a call on a pool waited QZ_WAIT_SECONDS
// (store/client_waits.h) in vain, every further call on it fails at once as having no usable
// connection, and the choice below passes it over. The cycle calls this first, so a hung
// database costs each cycle about QZ_WAIT_SECONDS and the other database still gets its writes.
int ReconnectCluster();
// Frees mpool, then spool.
void CloseConnectionPool();

// Which database a pool reaches: 0 mpool, 1 spool, -1 none.
int SideOf(const QzPool* pool);
// Whether db (the master's also standalone) answered this process's last
// call. Failures are a pool dropped or not built, no usable connection, and a call that ran out of
// time (a statement the server refused counts as answered).
bool DbAnswers(Db db);

// Percent-encoding of a password for the connection URL; false when out was too small.
bool UrlEncode(char* out, size_t size, const char* text);
// Lower-case hexadecimal digit of the low four bits of value.
char ToHex(int value);

// The one rule from a database to its pool: mpool for the master's, spool for the slave's;
// standalone always mpool. nullptr while that pool does not exist: a write then fails, it never
// goes to the other database.
QzPool* PoolOf(Db db);
// The address that names db in messages: clustmaster or clustslave (standalone: dbsvr).
const char* AddressOf(Db db);
// The database that the configured master's or slave's address names (standalone: the master's);
// false for any other address.
bool DbOfAddress(const char* address, Db* db);
// PoolOf the database address names; nullptr for an address that names neither.
QzPool* PoolOfAddress(const char* address);

// Pools for reads, which may be answered by either copy: the master's database's takes mpool, or
// spool while mpool is absent and for the rest of a round in which a call on mpool ran out of
// time; the slave's takes spool only.
QzPool* PoolByTarget(Db db);
// First open pool: mpool, else spool.
QzPool* FirstOpenPool();

// Runs one statement without result on a live connection of pool: kDbOk (after logging stmtErr
// when the database refused it), or kDbNoConnection after logging connErr. *accepted, when
// given, tells whether the database took the statement.
int ExecuteOn(QzPool* pool, const char* sql, const char* connErr, const char* stmtErr,
              bool* accepted = nullptr);
// The same for the statements that name their server in both messages ("<op> db connection
// error to <server>", "<op> db <verb> error to <server>"). In a cluster a missing pool means
// this node has no database there: nothing is run, silently, and kDbOk.
int ExecuteFor(QzPool* pool, const char* sql, const char* op, const char* verb, const char* server);

// A connection taken from a pool for one statement and given back when it goes out of scope.
class DbConn {
 public:
  explicit DbConn(QzPool* pool);
  ~DbConn();
  DbConn(const DbConn&) = delete;
  DbConn& operator=(const DbConn&) = delete;

  // False when there was no pool, no connection, or the connection failed its ping.
  bool usable() const { return usable_; }
  // Runs a write: true when the database accepted it.
  bool Execute(const char* sql);
  // Runs a query, calling f(ncols, values) for each row: kDbOk, or kDbQueryFailed when the
  // database raised an error or gave no result set.
  template <class F>
  int Query(const char* sql, F&& f);

 private:
  // Notes for DbAnswers whether the statement just run ran out of time.
  void NoteStatement() const;

  QzPool* pool_ = nullptr;
  QzConn* conn_ = nullptr;
  bool usable_ = false;
};

template <class F>
int DbConn::Query(const char* sql, F&& f) {
  // An exception escaping f would unwind through the library's C frames: it ends the program
  // here instead.
  QzRowFn fn = [](void* ctx, int ncols, const char* const* values) noexcept {
    (*static_cast<decltype(&f)>(ctx))(ncols, values);
  };
  int rc = qz_query(conn_, sql, fn, &f);
  NoteStatement();
  return rc == 0 ? kDbOk : kDbQueryFailed;
}

}  // namespace qor
