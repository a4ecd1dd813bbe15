#include "store_fixture.h"

#include <unistd.h>

#include "base/shell.h"
#include "config/qorconf.h"
#include "membership/heartbeat.h"
#include "membership/nodedown.h"
#include "net/ping.h"
#include "store/cluster_query.h"
#include "store/pools.h"

namespace qortest {

void StoreTest::SetUp() {
  qor::ForgetSilentAddresses();
  qor::CloseConnectionPool();
  qor::ConnectionPool = 1;
  UseTestCluster("master", kMasterAddr);
  ResetTables();
  Logs();
}

void StoreTest::TearDown() {
  qor::CloseConnectionPool();
  qor::ConnectionPool = 1;
  qor::SetShellRunner(nullptr);
  ResetTables();
}

void StoreTest::Connect(const std::set<std::string>& down) {
  seam.blocked = down;
  qor::ReconnectCluster();
  // Each operation under test pings as the first of its cycle would.
  qor::ForgetSilentAddresses();
  seam.commands.clear();
  Logs();
}

int StoreTest::Select(const char* cond, qor::ActInfo* info, qor::Db db) {
  return qor::GetClusterSql(kMasterAddr, cond, info, selected, db);
}

void StoreTest::ForEachSqlMode(const std::function<void()>& body) {
  std::string own = Sql("master", "select @@global.sql_mode;");
  own.erase(own.find_last_not_of('\n') + 1);
  for (const std::string& mode :
       {own, own.empty() ? "NO_BACKSLASH_ESCAPES" : own + ",NO_BACKSLASH_ESCAPES"}) {
    SCOPED_TRACE("sql_mode " + mode);
    Sql("master", "set global sql_mode = '" + mode + "';");
    body();
  }
  Sql("master", "set global sql_mode = '" + own + "';");
}

std::vector<std::string> Hosts(const qor::ActInfo& info, qor::ClustRecord* const* records) {
  std::vector<std::string> hosts;
  for (int i = 0; i < info.count; ++i) hosts.emplace_back(records[i]->hostname.c_str());
  return hosts;
}

std::vector<std::string> Pinged(const std::vector<std::string>& commands) {
  const std::string ping = "/bin/ping -c 1 -w 1 ";
  std::vector<std::string> addresses;
  for (const std::string& c : commands) {
    if (c.rfind(ping, 0) == 0) addresses.push_back(c.substr(ping.size()));
  }
  return addresses;
}

std::string InsertRows(const std::vector<Row>& rows) {
  std::string sql =
      "insert into clusters (hostname, ipaddress, role, role_id, status, cpucores, cpuloadavgpp, "
      "last_writemill, updated_at, tpl_syncmill, tpl_updatemill, tpl_syncstate) values ";
  for (size_t i = 0; i < rows.size(); ++i) {
    const Row& r = rows[i];
    sql += (i ? ", ('" : "('") + r.hostname + "', '" + r.ipaddress + "', '" + r.role + "', " +
           std::to_string(qor::RoleIdOf(r.role.c_str())) + ", " + std::to_string(r.status) + ", " +
           std::to_string(r.cpucores) + ", " + r.cpuloadavgpp + ", " +
           std::to_string(r.last_writemill) + ", now() - interval " + std::to_string(r.silentFor) +
           " second, " + std::to_string(r.tpl_syncmill) + ", " + std::to_string(r.tpl_updatemill) +
           ", " + std::to_string(r.tpl_syncstate) + ")";
  }
  return sql + ";";
}

void HeartbeatTest::SetUp() {
  StoreTest::SetUp();
  savedCnffile_ = qor::Cnffile;
  char name[128] = {};
  gethostname(name, sizeof name - 1);
  host = name;
  Become("master");
  Connect();
}

void HeartbeatTest::TearDown() {
  qor::Cnffile = savedCnffile_;
  StoreTest::TearDown();
}

void HeartbeatTest::Become(const char* role) {
  UseTestCluster(role, kMasterAddr);
  qor::Cnffile.set(dir.Write(".qorconf", TestClusterConf(role, "lo")));
  ASSERT_EQ(qor::GetQorconf(), 0);
}

std::string HeartbeatTest::Rows(const std::string& side, const std::string& cols) {
  return Sql(side, "select " + cols + " from clusters order by id;");
}

std::string Line(std::initializer_list<std::string> values) {
  std::string line;
  for (const std::string& v : values) line += (&v == values.begin() ? "" : "\t") + v;
  return line + "\n";
}

}  // namespace qortest
