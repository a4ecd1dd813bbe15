#include "store/cluster_writes.h"

#include <cstring>

#include "base/clock.h"
#include "base/log.h"
#include "config/qorconf.h"
#include "metrics/utilisation.h"
#include "store/pools.h"

namespace qor {

namespace {

long AsLong(int64_t v) {
  return static_cast<long>(v);
}

void NoteOwnRowWrite(OwnRowWrites& w, bool ok, int64_t sinceMicros) {
  w.lastOk = ok;
  w.lastMicros = MonotonicMicros() - sinceMicros;
  ++(ok ? w.ok : w.failed);
}

// ExecuteOn for this node's own row, noting the write in w.
int WriteOwnRow(Db db, const char* sql, const char* connErr, const char* stmtErr, OwnRowWrites& w) {
  int64_t since = MonotonicMicros();
  bool accepted = false;
  int rc = ExecuteOn(PoolOf(db), sql, connErr, stmtErr, &accepted);
  NoteOwnRowWrite(w, accepted, since);
  return rc;
}

// A statement that could not be built is refused with the operation's name; nothing is run.
int Refuse(const char* op, const char* what) {
  LogError("%s refused: %s (%.64s)", op, kSqlRefused, what);
  return kDbQueryFailed;
}

// The cluster database name stands unquoted in "from %s.clusters": only a plain name may.
bool PlainName(const char* name) {
  if (*name == '\0') return false;
  for (const char* p = name; *p; ++p) {
    bool ok = (*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') ||
              *p == '_' || *p == '$';
    if (!ok) return false;
  }
  return true;
}

// "update clusters set updated_at=now(), <columns> where hostname = '<host>';" on db: the writes
// that mark a server's row by its name, traced, refused and reported under op's name (trace2:
// the name of the second trace line).
int UpdateHostRow(Db db, const char* host, const char* columns, const char* op,
                  const char* trace2) {
  Trace("_x%s(1) dbsvr=%s host=%s\n", op, AddressOf(db), host);
  SqlQuoted h(host);
  SqlText sql;
  if (!h.ok() || !sql.format("update clusters set updated_at=now(), %s where hostname = '%s';",
                             columns, h.c_str())) {
    return Refuse(op, host);
  }
  Trace("_x%s(2): sql=\n%s\n", trace2, sql.c_str());
  FixedText<64> connErr, stmtErr;
  connErr.format("%s db connection error", op);
  stmtErr.format("%s db update error", op);
  return ExecuteOn(PoolOf(db), sql.c_str(), connErr.c_str(), stmtErr.c_str());
}

}  // namespace

bool InsertStatement(SqlText& sql, const ClustRecord& rec, int64_t mill) {
  SqlQuoted host(rec.hostname.c_str()), ip(rec.ipaddress.c_str()), cid(rec.clusterid.c_str()),
      role(rec.role.c_str()), cpu(rec.cpuinfo.c_str());
  return host.ok() && ip.ok() && cid.ok() && role.ok() && cpu.ok() &&
         sql.format(
             "insert into clusters (hostname,ipaddress,clusterid,role,role_id,status,dbwrite_count,"
             "last_writemill,cpuinfo,cpus,cpuphycores,cpucores,cpuprocs,cpuloadavg,cpuloadavgpp,"
             "containers,tpl_updatemill,tpl_syncmill,tpl_syncstate,created_at,updated_at,"
             "qortimemill) values ('%s','%s','%s','%s','%d','%d','0','0','%s','%d','%d','%d','%d',"
             "'%0.2f','%0.2f','%d','0','0','0',now(),now(),'%ld');",
             host.c_str(), ip.c_str(), cid.c_str(), role.c_str(), RoleIdOf(rec.role.c_str()),
             rec.status, cpu.c_str(), rec.cpus, rec.cpuphycores, rec.cpucores, rec.cpuprocs,
             rec.cpuloadavg, rec.cpuloadavgpp, rec.containers, AsLong(mill));
}

// The four forms differ in two pieces: the last write stamp after the status (with withlastwrite),
// and, in the short form, the template stamps before tpl_syncstate (with withlastwrite only).
bool UpdateStatement(SqlText& sql, const ClustRecord& r, int withlastwrite, RowForm form) {
  FixedText<48> lastwrite;
  if (withlastwrite == 1) lastwrite.format("last_writemill='%ld', ", AsLong(r.last_writemill));
  if (form == RowForm::kFull) {
    SqlQuoted host(r.hostname.c_str()), ip(r.ipaddress.c_str()), cid(r.clusterid.c_str()),
        role(r.role.c_str()), ver(r.qorver.c_str());
    return host.ok() && ip.ok() && cid.ok() && role.ok() && ver.ok() &&
           sql.format(
               "update clusters set updated_at=now(), hostname='%s', ipaddress='%s', "
               "clusterid='%s', role='%s', role_id='%d', status='%d', %scpus='%d', "
               "cpuphycores='%d', cpucores='%d', cpuprocs='%d', cpuloadavg='%0.2f', "
               "cpuloadavgpp='%0.2f', containers='%d',cpuutil='%0.2f',memutil='%0.2f',"
               "diskutil='%0.2f',tpl_updatemill='%ld',  tpl_syncmill='%ld', tpl_syncstate='%d', "
               "qorver='%s' where id='%d';",
               host.c_str(), ip.c_str(), cid.c_str(), role.c_str(), r.role_id, r.status,
               lastwrite.c_str(), r.cpus, r.cpuphycores, r.cpucores, r.cpuprocs, r.cpuloadavg,
               r.cpuloadavgpp, r.containers, r.cpuutil, r.memutil, r.diskutil,
               AsLong(r.tpl_updatemill), AsLong(r.tpl_syncmill), r.tpl_syncstate, ver.c_str(),
               r.id);
  }
  FixedText<64> tplstamps;
  if (withlastwrite == 1) {
    tplstamps.format("tpl_updatemill='%ld',  tpl_syncmill='%ld', ", AsLong(r.tpl_updatemill),
                     AsLong(r.tpl_syncmill));
  }
  return sql.format(
      "update clusters set updated_at=now(), status='%d', %scpuloadavg='%0.2f', "
      "cpuloadavgpp='%0.2f', containers='%d',%stpl_syncstate='%d' where id='%d';",
      r.status, lastwrite.c_str(), r.cpuloadavg, r.cpuloadavgpp, r.containers, tplstamps.c_str(),
      r.tpl_syncstate, r.id);
}

// The where clause is built in 128 bytes, as it always was; a host that does not fit is refused.
bool RemoveStatement(SqlText& sql, const char* selector) {
  if (!PlainName(cnf.cldbname.c_str())) return false;
  FixedText<128> where;
  if (!std::strcmp(selector, "-all")) {
    where.set(" ");
  } else if (!std::strcmp(selector, "-alldummy")) {
    where.set("where hostname like 'qordummyd%'");
  } else if (*selector != '\0') {
    SqlQuoted host(selector);
    if (!host.ok() || !where.format("where hostname = '%s'", host.c_str())) return false;
  }
  FixedText<128> from;
  return from.format("from %s.clusters", cnf.cldbname.c_str()) &&
         sql.format("delete %s %s;", from.c_str(), where.c_str());
}

bool SweepStatement(SqlText& sql, int minutes) {
  FixedText<160> where;
  return where.format(
             "where role!='master' and role!='slave' and updated_at < current_timestamp + "
             "interval -%d minute",
             minutes) &&
         sql.format("delete from clusters %s", where.c_str());
}

int InsertClusterSql(Db db, int64_t mill, ClustRecord rec, OwnRowWrites* writes) {
  rec.role_id = RoleIdOf(rec.role.c_str());
  SqlText sql;
  if (!InsertStatement(sql, rec, mill)) {
    NoteOwnRowWrite(writes[Index(db)], false, MonotonicMicros());
    return Refuse("insertclustersql", rec.hostname.c_str());
  }
  Trace("_xinsertclustersql: sql=\n%s\n", sql.c_str());
  return WriteOwnRow(db, sql.c_str(), "insertclustersql db connection error",
                     "insertclustersql db insert error", writes[Index(db)]);
}

int UpdateClusterSql(Db db, ClustRecord& rec, int withlastwrite, RowForm form,
                     OwnRowWrites* writes) {
  rec.role_id = RoleIdOf(rec.role.c_str());
  Trace("_xupdateclustersql(1): dbsvr=%s cnf.dbuser=%s cnf.cldbname=%s\n", AddressOf(db),
        cnf.dbuser.c_str(), cnf.cldbname.c_str());
  SqlText sql;
  if (!UpdateStatement(sql, rec, withlastwrite, form)) {
    NoteOwnRowWrite(writes[Index(db)], false, MonotonicMicros());
    return Refuse("updateclustersql", rec.hostname.c_str());
  }
  Trace("_xupdateclustersql(2): sql=\n%s\n", sql.c_str());
  return WriteOwnRow(db, sql.c_str(), "updateclustersql db connection error",
                     "updateclustersql db update error", writes[Index(db)]);
}

int UpdateClusterSql(Db db, int id, const ClustRecord& rec, int withlastwrite, RowForm form,
                     OwnRowWrites* writes) {
  ClustRecord copy = rec;
  copy.id = id;
  return UpdateClusterSql(db, copy, withlastwrite, form, writes);
}

int SetStatusClusterSql(Db db, int id, int status) {
  Trace("_xsetstatussql(1) dbsvr=%s cnf.dbuser=%s cnf.cldbname=%s\n", AddressOf(db),
        cnf.dbuser.c_str(), cnf.cldbname.c_str());
  SqlText sql;
  sql.format("update clusters set updated_at = now(), status = '%d' where id = '%d';", status, id);
  Trace("_xsetstatussql(2): sql=\n%s\n", sql.c_str());
  return ExecuteOn(PoolOf(db), sql.c_str(), "setstatusclustersql db connection error",
                   "setstatusclustersql db update error");
}

int SetOldClusterSvrSql(Db db, const char* host) {
  FixedText<64> set;
  set.format("status = '%d', last_writemill = '0'", kStatusOld);
  return UpdateHostRow(db, host, set.c_str(), "setoldclustersvrsql", "setoldclustersvrsql");
}

int SetTplOldClusterSvrSql(Db db, const char* host) {
  FixedText<64> set;
  set.format("tpl_syncstate = '%d', tpl_syncmill = '0'", kTplOld);
  return UpdateHostRow(db, host, set.c_str(), "settploldclustersvrsql", "settploldclustersvrsql");
}

int UpdateTplsyncSql(Db db, const char* host, int64_t syncmill, int state) {
  FixedText<64> set;
  set.format("tpl_syncstate = '%d', tpl_syncmill = '%ld'", state, AsLong(syncmill));
  // The second trace line has always been spelt so.
  return UpdateHostRow(db, host, set.c_str(), "updatetplsyncsql", "updatetplsyncssql");
}

int RemoveClusterSvrsSql(Db db, const char* selector) {
  SqlText sql;
  if (!RemoveStatement(sql, selector)) return Refuse("removeclustersvrssql", selector);
  Trace("_xremoveclustersvrssql(1): sqltmp=\n%s\n", sql.c_str());
  return ExecuteOn(PoolOf(db), sql.c_str(), "removeclustersvrssql db connection error",
                   "removeclustersvrssql db delete error");
}

int ClearClusterSql(Db db) {
  return ExecuteOn(PoolOf(db), "truncate table clusters;", "clearclustersql db connection error",
                   "clearclustersql db truncate error");
}

int SweepClustersql(Db db) {
  SqlText sql;
  SweepStatement(sql, cnf.clustsweep);
  Trace("_xdeleteclusterssql(2):%s\n", sql.c_str());
  // A failed delete is logged and the daemon goes on: the next slow-work pass sweeps again.
  return ExecuteOn(PoolOf(db), sql.c_str(), "deleteclusterssql db connection error",
                   "deleteclusterssql db delete error");
}

}  // namespace qor
