#include "store/pools.h"

#include <cctype>
#include <cstring>

#include "base/clock.h"
#include "base/fatal.h"
#include "base/log.h"
#include "base/shell.h"
#include "config/qorconf.h"
#include "net/ping.h"

namespace qor {

QzPool* mpool = nullptr;
QzPool* spool = nullptr;
int ConnectionPool = 1;

namespace {

// Whether the database behind mpool (0) and spool (1) answered this process's last call on it.
// Written by every call on a pool, read by DbAnswers and the reconnect.
bool answering[2] = {false, false};

// side: 0 mpool, 1 spool, -1 neither (nothing to note).
void NoteAnswer(int side, bool answered) {
  if (side >= 0) answering[side] = answered;
}

// A pool whose server kept a call of this round waiting in vain counts as absent, as while its
// server does not answer ping: reads of the master's and the first open pool go on with the
// slave's database.
bool Open(const QzPool* pool) {
  return pool != nullptr && !qz_pool_timed_out(pool);
}

// Ends the process with status 1, as the library does without a handler: neither the library
// nor the operation it broke off can be trusted to go on. A daemon that ends so leaves its rows
// to age like those of any server that stopped.
[[noreturn]] void LibraryFatal(const char* message) {
  LogError("libzdb: %s", message);
  FatalExit();
}

// The numbered notices of one side: the master uses 1/2, the slave 3/4, standalone 5/6.
struct PoolSlot {
  QzPool** pool;
  const char* name;  // "mpool" or "spool"
  int notice;
  int index() const { return pool == &spool ? 1 : 0; }
};

void BuildPool(const PoolSlot& side, const char* address) {
  if (ConnectionPool == 5) {
    LogNotice("reconnect_mysql(%d) cluster=%d mpool=%p spool=%p (%d)", side.notice, Cluster,
              static_cast<void*>(mpool), static_cast<void*>(spool), ConnectionPool);
  }
  char password[256];
  UrlEncode(password, sizeof password, cnf.dbpwd.c_str());
  FixedText<512> url;
  url.format("mysql://%s/qor?user=qordirect&password=%s", address, password);
  qz_set_fatal_handler(LibraryFatal);
  *side.pool = qz_pool_start(url.c_str(), ConnectionPool);
  NoteAnswer(side.index(), *side.pool != nullptr);
  if (*side.pool == nullptr) LogError("Connection Failure %s to %s", side.name, address);
  if (ConnectionPool == 5) {
    LogNotice("reconnect_mysql(%d) starting cluster=%d mpool=%p spool=%p toadr=%s(%d)",
              side.notice + 1, Cluster, static_cast<void*>(mpool), static_cast<void*>(spool),
              address, ConnectionPool);
  }
}

void Reconnect(const PoolSlot& side, const char* role, const char* address) {
  if (Ping(address) != 0) {
    NoteAnswer(side.index(), false);
    if (*side.pool != nullptr) {
      qz_pool_free(*side.pool);
      *side.pool = nullptr;
      LogError("Ping %s(%s) failed in ReconnectCluster. Made %s null", role, address, side.name);
    } else {
      LogError("Ping %s(%s) failed in ReconnectCluster. %s is already null", role, address,
               side.name);
    }
    return;
  }
  if (*side.pool == nullptr) BuildPool(side, address);
}

}  // namespace

int ReconnectCluster() {
  ForgetSilentAddresses();
  for (QzPool* pool : {mpool, spool}) {
    if (pool != nullptr) qz_pool_rearm(pool);
  }
  if (!Cluster) {
    if (mpool == nullptr) BuildPool({&mpool, "mpool", 5}, cnf.dbsvr.c_str());
    return 1;
  }
  Reconnect({&mpool, "mpool", 1}, "master", cnf.clustmaster.c_str());
  Reconnect({&spool, "spool", 3}, "slave", cnf.clustslave.c_str());
  return 1;
}

int SideOf(const QzPool* pool) {
  return pool == nullptr ? -1 : pool == mpool ? 0 : pool == spool ? 1 : -1;
}

bool DbAnswers(Db db) {
  return answering[Index(db)];
}

void CloseConnectionPool() {
  if (mpool != nullptr) qz_pool_free(mpool);
  mpool = nullptr;
  if (spool != nullptr) qz_pool_free(spool);
  spool = nullptr;
}

char ToHex(int value) {
  return "0123456789abcdef"[value & 15];
}

bool UrlEncode(char* out, size_t size, const char* text) {
  size_t n = 0;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
    char enc[4] = {static_cast<char>(*p), '\0', '\0', '\0'};
    if (*p == ' ') {
      enc[0] = '+';
    } else if (!std::isalnum(*p) || *p > 127) {
      if (*p != '-' && *p != '_' && *p != '.' && *p != '~') {
        enc[0] = '%';
        enc[1] = ToHex(*p >> 4);
        enc[2] = ToHex(*p);
      }
    }
    size_t len = std::strlen(enc);
    if (n + len >= size) {
      out[n] = '\0';
      return false;
    }
    std::memcpy(out + n, enc, len);
    n += len;
  }
  out[n] = '\0';
  return true;
}

QzPool* PoolOf(Db db) {
  if (!Cluster) return mpool;
  return db == Db::kMaster ? mpool : spool;
}

const char* AddressOf(Db db) {
  if (!Cluster) return cnf.dbsvr.c_str();
  return db == Db::kMaster ? cnf.clustmaster.c_str() : cnf.clustslave.c_str();
}

bool DbOfAddress(const char* address, Db* db) {
  if (!Cluster || cnf.clustmaster == address) {
    *db = Db::kMaster;
  } else if (cnf.clustslave == address) {
    *db = Db::kSlave;
  } else {
    return false;
  }
  return true;
}

QzPool* PoolOfAddress(const char* address) {
  Db db;
  return DbOfAddress(address, &db) ? PoolOf(db) : nullptr;
}

QzPool* PoolByTarget(Db db) {
  if (db == Db::kMaster && !Open(PoolOf(Db::kMaster))) return PoolOf(Db::kSlave);
  return PoolOf(db);
}

QzPool* FirstOpenPool() {
  return PoolByTarget(Db::kMaster);
}

DbConn::DbConn(QzPool* pool) : pool_(pool) {
  if (pool == nullptr) return;
  conn_ = qz_get(pool);
  usable_ = conn_ != nullptr && qz_ping(conn_) == 1;
  NoteAnswer(SideOf(pool), usable_);
}

DbConn::~DbConn() {
  qz_close(conn_);
}

bool DbConn::Execute(const char* sql) {
  bool done = qz_execute(conn_, sql) == 0;
  NoteStatement();
  return done;
}

void DbConn::NoteStatement() const {
  NoteAnswer(SideOf(pool_), !qz_pool_timed_out(pool_));
}

int ExecuteOn(QzPool* pool, const char* sql, const char* connErr, const char* stmtErr,
              bool* accepted) {
  DbConn conn(pool);
  bool ok = conn.usable() && conn.Execute(sql);
  if (accepted) *accepted = ok;
  if (!conn.usable()) {
    LogError("%s", connErr);
    return kDbNoConnection;
  }
  if (!ok) LogError("%s", stmtErr);
  return kDbOk;
}

int ExecuteFor(QzPool* pool, const char* sql, const char* op, const char* verb,
               const char* server) {
  if (Cluster && pool == nullptr) return kDbOk;
  FixedText<256> connErr, stmtErr;
  connErr.format("%s db connection error to %s", op, server);
  stmtErr.format("%s db %s error to %s", op, verb, server);
  return ExecuteOn(pool, sql, connErr.c_str(), stmtErr.c_str());
}

}  // namespace qor
