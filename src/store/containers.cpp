#include "store/containers.h"

#include <cstdlib>

#include "base/log.h"
#include "config/qorconf.h"
#include "store/cluster_query.h"
#include "store/pools.h"
#include "store/sql_text.h"

namespace qor {

int GetContainers(const char* host, int* count) {
  SqlQuoted h(host);
  SqlText sql;
  if (!h.ok() ||
      !sql.format("select count(id) from containers where hostname='%s' and containerid!='';",
                  h.c_str())) {
    LogError("getcontainers refused: %s (%.64s)", kSqlRefused, host);
    return kDbQueryFailed;
  }
  Trace("_getcontainersssql: sql=%s\n", sql.c_str());
  DbConn conn(FirstOpenPool());
  if (!conn.usable()) {
    LogError("getcontainers db connection error");
    return kDbNoConnection;
  }
  int counted = 0;
  bool found = false;
  int rc = conn.Query(sql.c_str(), [&](int ncols, const char* const* v) {
    if (found || ncols < 1 || v[0] == nullptr || v[0][0] == '\0') return;
    counted = std::atoi(v[0]);
    found = true;
  });
  if (rc != kDbOk) {
    LogError("getcontainersdb db query error");
    return kDbQueryFailed;
  }
  *count = counted;
  return kDbOk;
}

int CountContainers(const char* host, int* count, bool* failing) {
  // A failure is no count: stored as one it would make the server look full (or empty) to the
  // target choice. One line per run of failures, as a database down fails every cycle.
  int rc = GetContainers(host, count);
  if (rc != kDbOk && !*failing) {
    LogError("getcontainers failed (%d), containers kept at %d", rc, *count);
  }
  *failing = rc != kDbOk;
  return rc;
}

int GetLumoContainerSql() {
  const char* host;
  if (!Cluster) {
    host = cnf.dbsvr.c_str();
  } else if (ClustRole == kRoleMaster) {
    host = cnf.clustmaster.c_str();
  } else if (ClustRole == kRoleSlave) {
    host = cnf.clustslave.c_str();
  } else {
    return 0;
  }
  SqlQuoted h(host);
  SqlText sql;
  if (!h.ok() ||
      !sql.format("select count(id) from qor.containers where (containername like 'lumobr_%%%%' "
                  "or containername like 'lumodt_%%%%') and hostname='%s';",
                  h.c_str())) {
    LogError("getlumocontainersql refused: %s (%.64s)", kSqlRefused, host);
    return 0;
  }
  // The statement goes to the database as data, so "%%" stays "%%" there, as it always has.
  Trace("_xgetlumocontainersql(1): sql=\n%s\n", sql.c_str());
  // Only a cluster node without any pool gives up silently; standalone mode counts on the
  // master's pool and reports its absence like any unusable connection.
  QzPool* pool = FirstOpenPool();
  if (Cluster && pool == nullptr) return 0;
  DbConn conn(pool);
  if (!conn.usable()) {
    LogError("getlumocontainersql db connection error");
    return 0;
  }
  int count = 0;
  int rc = conn.Query(sql.c_str(), [&](int ncols, const char* const* v) {
    if (ncols >= 1) count = std::atoi(v[0] ? v[0] : "");
  });
  if (rc != kDbOk) {
    LogError("getlumocontainersql db query error");
    return 0;
  }
  return count;
}

}  // namespace qor
