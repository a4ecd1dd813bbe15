#include "store/maintenance.h"

#include <cstdlib>

#include "base/log.h"
#include "store/pools.h"
#include "store/sql_text.h"

namespace qor {

namespace {

constexpr const char* kCreateTable =
    "create table if not exists qorclustd_maintenance (hostname varchar(255) not null primary "
    "key, reason varchar(255) not null default '', marked_by varchar(255) not null default '', "
    "since datetime not null, until datetime not null);";

// The table is made in the same connection before the statement that needs it: a database
// restored from an older dump, or a new slave, has none yet.
int Run(Db db, const char* sql, const char* op) {
  DbConn conn(PoolOf(db));
  if (!conn.usable()) {
    LogError("%s db connection error to %s", op, AddressOf(db));
    return kDbNoConnection;
  }
  if (!conn.Execute(kCreateTable) || !conn.Execute(sql)) {
    LogError("%s db update error to %s", op, AddressOf(db));
    return kDbQueryFailed;
  }
  return kDbOk;
}

}  // namespace

int SetMaintenanceSql(Db db, const char* host, int minutes, const char* reason, const char* by) {
  SqlQuoted h(host), r(reason), b(by);
  SqlText sql;
  if (!h.ok() || !r.ok() || !b.ok() ||
      !sql.format("replace into qorclustd_maintenance (hostname, reason, marked_by, since, until) "
                  "values ('%s', '%s', '%s', now(), now() + interval %d minute);",
                  h.c_str(), r.c_str(), b.c_str(), minutes)) {
    return kDbQueryFailed;
  }
  return Run(db, sql.c_str(), "setmaintenancesql");
}

int ClearMaintenanceSql(Db db, const char* host) {
  SqlQuoted h(host);
  SqlText sql;
  if (!h.ok() ||
      !sql.format("delete from qorclustd_maintenance where hostname = '%s';", h.c_str())) {
    return kDbQueryFailed;
  }
  return Run(db, sql.c_str(), "clearmaintenancesql");
}

int ReadMaintenanceSql(Db db, std::vector<MaintenanceMark>* marks) {
  DbConn conn(PoolOf(db));
  if (!conn.usable()) return kDbNoConnection;
  // A database without the table (no mark was ever set there) has no marks; reading makes nothing,
  // so that a reader, -explain among them, never writes.
  return conn.Query(
      "select hostname, reason, marked_by, unix_timestamp(since), unix_timestamp(until) from "
      "qorclustd_maintenance where until > now() order by hostname;",
      [&](int ncols, const char* const* v) {
        if (ncols < 5 || v[0] == nullptr || MarkOf(*marks, v[0]) != nullptr) return;
        MaintenanceMark m;
        m.hostname.set(v[0]);
        m.reason.set(v[1] != nullptr ? v[1] : "");
        m.markedBy.set(v[2] != nullptr ? v[2] : "");
        m.since = v[3] != nullptr ? std::atoll(v[3]) : 0;
        m.until = v[4] != nullptr ? std::atoll(v[4]) : 0;
        marks->push_back(m);
      });
}

const MaintenanceMark* MarkOf(const std::vector<MaintenanceMark>& marks, const char* host) {
  for (const MaintenanceMark& m : marks) {
    if (m.hostname == host) return &m;
  }
  return nullptr;
}

}  // namespace qor
