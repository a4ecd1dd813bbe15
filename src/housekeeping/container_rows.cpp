#include "housekeeping/container_rows.h"

#include <cstring>

#include "base/log.h"
#include "config/qorconf.h"
#include "net/ping.h"
#include "store/pools.h"

namespace qor {

namespace {

bool Cleanable(const char* address) {
  return std::strcmp(address, "0") != 0 && Ping(address) == 0;
}

}  // namespace

int CheckAllRsvContainers() {
  if (!Cluster) {
    DeleteNullSql(cnf.dbsvr.c_str());
    return 0;
  }
  if (ClustRole != kRoleMaster && ClustRole != kRoleSlave) return 0;
  if (Cleanable(cnf.clustmaster.c_str())) DeleteNullSql(cnf.clustmaster.c_str());
  if (Cleanable(cnf.clustslave.c_str())) DeleteNullSql(cnf.clustslave.c_str());
  return 0;
}

int DeleteNullSql(const char* server) {
  Trace("_xdeletenullsql(1):dbsvr=%s\n", server);
  const char* sql = "delete from containers where containerid='';";
  Trace("_xdeletenullsql(2):%s\n", sql);
  return ExecuteFor(PoolOfAddress(server), sql, "deletenullsql", "delete", server);
}

int DeleteLumoBRSql(Db db) {
  Trace("_xdeletelumobrsql(1):dbsvr=%s\n", AddressOf(db));
  // The doubled percent signs reach the database as they stand.
  const char* sql =
      "update qor.containers set containerid=NULL,containername=NULL,username=NULL,groupname=NULL,"
      "organizationname=NULL where (containername like 'lumobr_%%' or containername like "
      "'lumodt_%%') and date_add(updated_at, INTERVAL 5 MINUTE) <= now();";
  Trace("_xdeletelumobrsql(2):%s\n", sql);
  return ExecuteFor(PoolOf(db), sql, "deletelumobrsql", "delete", AddressOf(db));
}

}  // namespace qor
