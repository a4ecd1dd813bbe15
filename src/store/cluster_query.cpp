#include "store/cluster_query.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/clock.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "net/ping.h"
#include "store/pools.h"

namespace qor {

namespace {

constexpr const char* kDefaultOrder = "order by role_id, hostname";
constexpr const char* kRoleOrder = "order by role";

struct Selector {
  const char* word;
  const char* where;  // may hold one %d, the status
  int status;
  const char* order;
};

const Selector kSelectors[] = {
    {"-all", " ", 0, kDefaultOrder},
    {"-active", "where status = '%d'", kStatusActive, kDefaultOrder},
    {"-active_all", "where status = '%d'", kStatusActive, kDefaultOrder},
    {"-inactive", "where status = '%d'", kStatusInactive, kDefaultOrder},
    {"-not_master", "where role != 'master'", 0, kDefaultOrder},
    {"-not_slave", "where role != 'slave'", 0, kDefaultOrder},
    {"-master_slave", "where role != 'member'", 0, kRoleOrder},
    {"-active_master_slave", "where status =  '%d' and role != 'member'", kStatusActive,
     kRoleOrder},
    {"-active_all_master_slave", "where status =  '%d' and role != 'member'", kStatusActive,
     kRoleOrder},
    {"-master", "where role = 'master'", 0, kDefaultOrder},
    {"-slave", "where role = 'slave'", 0, kDefaultOrder},
    {"-member", "where role = 'member'", 0, kDefaultOrder},
    {"-target", "where status = '%d' and cpuloadavgpp < '1000' ", kStatusActive,
     "order by cpuloadavgpp limit 1"},
};

// The where clause is built in 128 bytes, as it always was; a host name or pattern that does not
// fit there is refused rather than cut, since a cut pattern would select other rows.
bool WhereClause(FixedText<128>& where, const char** order, const char* cond) {
  *order = kDefaultOrder;
  if (*cond == '\0') {
    where.clear();
    return true;
  }
  for (const Selector& s : kSelectors) {
    if (std::strcmp(cond, s.word) != 0) continue;
    *order = s.order;
    if (!s.status) return where.set(s.where);
      // The formats are the table's own literals above, each with exactly one %d.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return where.format(s.where, s.status);
#pragma GCC diagnostic pop
  }
  if (std::strncmp(cond, "like_", 5) == 0) {
    char pattern[128];
    if (StrExt(pattern, sizeof pattern, cond, 5, static_cast<int>(std::strlen(cond))) != 0) {
      return false;
    }
    SqlQuoted p(pattern);
    return p.ok() &&
           where.format("where hostname like '%s' or ipaddress like '%s'", p.c_str(), p.c_str());
  }
  SqlQuoted host(cond);
  return host.ok() && where.format("where hostname = '%s'", host.c_str());
}

int AtoI(const char* s) {
  return static_cast<int>(std::strtol(s, nullptr, 10));
}
int64_t AtoL(const char* s) {
  return std::strtoll(s, nullptr, 10);
}

// The selected columns in the order of the select list, and how each one's text lands in the
// record. SQL NULL has no text: it reads as the empty text, which converts to 0.
struct Column {
  const char* name;
  void (*fill)(ClustRecord& rec, const char* text);
};

double AsDouble(const char* v) {
  return static_cast<double>(AtoL(v));
}

const Column kColumns[] = {
    {"id", [](ClustRecord& r, const char* v) { r.id = AtoI(v); }},
    {"hostname", [](ClustRecord& r, const char* v) { r.hostname.set(v); }},
    {"ipaddress", [](ClustRecord& r, const char* v) { r.ipaddress.set(v); }},
    {"clusterid", [](ClustRecord& r, const char* v) { r.clusterid.set(v); }},
    {"role", [](ClustRecord& r, const char* v) { r.role.set(v); }},
    {"role_id", [](ClustRecord& r, const char* v) { r.role_id = AtoI(v); }},
    {"status", [](ClustRecord& r, const char* v) { r.status = AtoI(v); }},
    {"dbwrite_count", [](ClustRecord& r, const char* v) { r.dbwrite_count = AsDouble(v); }},
    {"last_writemill", [](ClustRecord& r, const char* v) { r.last_writemill = AtoL(v); }},
    {"tpl_updatemill", [](ClustRecord& r, const char* v) { r.tpl_updatemill = AtoL(v); }},
    {"tpl_syncmill", [](ClustRecord& r, const char* v) { r.tpl_syncmill = AtoL(v); }},
    {"tpl_syncstate", [](ClustRecord& r, const char* v) { r.tpl_syncstate = AtoI(v); }},
    {"cpuinfo", [](ClustRecord& r, const char* v) { r.cpuinfo.set(v); }},
    {"cpus", [](ClustRecord& r, const char* v) { r.cpus = AtoI(v); }},
    {"cpuphycores", [](ClustRecord& r, const char* v) { r.cpuphycores = AtoI(v); }},
    {"cpucores", [](ClustRecord& r, const char* v) { r.cpucores = AtoI(v); }},
    {"cpuprocs", [](ClustRecord& r, const char* v) { r.cpuprocs = AtoI(v); }},
    {"cpuloadavg", [](ClustRecord& r, const char* v) { r.cpuloadavg = AsDouble(v); }},
    {"cpuloadavgpp", [](ClustRecord& r, const char* v) { r.cpuloadavgpp = AsDouble(v); }},
    {"containers", [](ClustRecord& r, const char* v) { r.containers = AtoI(v); }},
    // Read against the reader's clock, which FillClustRecord is handed.
    {"updated_at", nullptr},
    {"qortimemill", [](ClustRecord& r, const char* v) { r.qortimemill = AtoL(v); }},
    {"cpuutil", [](ClustRecord& r, const char* v) { r.cpuutil = AsDouble(v); }},
    {"memutil", [](ClustRecord& r, const char* v) { r.memutil = AsDouble(v); }},
    {"diskutil", [](ClustRecord& r, const char* v) { r.diskutil = AsDouble(v); }},
    {"qorver", [](ClustRecord& r, const char* v) { r.qorver.set(v); }},
};
constexpr int kColumnCount = static_cast<int>(sizeof kColumns / sizeof kColumns[0]);
constexpr int kStatusColumn = 6, kCoresColumn = 15, kUpdatedAtColumn = 20;

}  // namespace

bool BuildClusterSelect(SqlText& sql, const char* cond) {
  FixedText<128> where;
  const char* order = kDefaultOrder;
  if (!WhereClause(where, &order, cond ? cond : "")) return false;
  FixedText<512> columns;
  for (const Column& c : kColumns) {
    if (!columns.empty()) columns.append(",");
    columns.append(c.name);
  }
  return sql.format("select %s %s %s %s;", columns.c_str(), "from clusters", where.c_str(), order);
}

void FillClustRecord(ClustRecord& rec, int ncols, const char* const* values, ActInfo& info,
                     int64_t nowSec) {
  int n = ncols < kColumnCount ? ncols : kColumnCount;
  for (int i = 0; i < n; ++i) {
    const char* v = values[i] ? values[i] : "";
    if (i == kUpdatedAtColumn) {
      rec.updated_at = ParseUpdatedAt(v, nowSec);
    } else {
      kColumns[i].fill(rec, v);
    }
  }
  // Active rows count as servers, and their cores go into the sum; any node's row can claim any
  // core count, so the sum of a full array is held to int.
  if (n <= kStatusColumn || rec.status != kStatusActive) return;
  ++info.servers;
  if (n <= kCoresColumn) return;
  const long long cores = static_cast<long long>(info.cores) + rec.cpucores;
  info.cores = static_cast<int>(std::clamp<long long>(cores, INT_MIN, INT_MAX));
}

int GetClusterSql(const char* dbsvr, const char* cond, ActInfo* info, ClustRecord** records,
                  Db db) {
  *info = ActInfo{};
  Trace("_xgetclustersql(1): dbsvr=%s dbuser=%s cond=%s con=%p\n", dbsvr, cnf.dbuser.c_str(), cond,
        static_cast<void*>(nullptr));
  SqlText sql;
  if (!BuildClusterSelect(sql, cond)) {
    LogError("getclustersql selector refused for %s: %s (%.64s)", dbsvr, kSqlRefused, cond);
    return kDbQueryFailed;
  }
  Trace("_xgetclustersql(2): sql=\n%s\n", sql.c_str());
  QzPool* pool = PoolByTarget(db);
  DbConn conn(pool);
  if (!conn.usable()) {
    LogError("getclustersql db connection error to %s", dbsvr);
    return kDbNoConnection;
  }
  // The arrays hold 64 rows: later rows are neither stored nor counted, so that every reader
  // that walks entries 0 to count-1 sees only rows of this query.
  bool overflow = false;
  const int64_t nowSec = time(nullptr);
  int rc = conn.Query(sql.c_str(), [&](int ncols, const char* const* values) {
    if (info->count >= Maxcluster) {
      overflow = true;
      return;
    }
    FillClustRecord(*records[info->count], ncols, values, *info, nowSec);
    ++info->count;
  });
  if (rc != kDbOk) {
    *info = ActInfo{};
    LogError("getclustersql db query error to %s", dbsvr);
    return kDbQueryFailed;
  }
  if (overflow) LogError("getclustersql more than %d rows on %s", Maxcluster, dbsvr);
  info->side = SideOf(pool);
  return kDbOk;
}

Db ReadDb(const ActInfo& info, Db named) {
  return info.side == 0 ? Db::kMaster : info.side == 1 ? Db::kSlave : named;
}

int StrExt(char* out, size_t size, const char* src, int start, int len) {
  if (start < 0 || len < 0 || static_cast<size_t>(len) > std::strlen(src)) return 1;
  size_t srclen = std::strlen(src);
  size_t from = static_cast<size_t>(start) < srclen ? static_cast<size_t>(start) : srclen;
  size_t n = srclen - from < static_cast<size_t>(len) ? srclen - from : static_cast<size_t>(len);
  CopyText(out, size, std::string_view(src + from, n));
  return 0;
}

int GetClustCountSql(int* count) {
  DbConn conn(FirstOpenPool());
  if (!conn.usable()) {
    LogError("getclustcountsql db connection error");
    return kDbNoConnection;
  }
  int rows = 0;
  if (conn.Query("select * from clusters;", [&](int, const char* const*) { ++rows; }) != kDbOk) {
    LogError("getclustcountsql db query error");
    return kDbQueryFailed;
  }
  *count = rows;
  Trace("_xgetclustcountsql(1): count=%d\n", rows);
  return kDbOk;
}

int GetClustCount(int* count) {
  *count = 0;
  const char* master = cnf.clustmaster.c_str();
  const char* slave = cnf.clustslave.c_str();
  // The first open pool answers. The slave asks after its master first, as it always has; a member
  // counts only while the master or the slave answers.
  if (ClustRole == kRoleMaster || Ping(master) == 0 || ClustRole == kRoleSlave ||
      Ping(slave) == 0) {
    GetClustCountSql(count);
  }
  return 0;
}

}  // namespace qor
