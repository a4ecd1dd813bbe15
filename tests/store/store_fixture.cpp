#include "store_fixture.h"

#include <signal.h>

#include <cstdio>
#include <fstream>

#include "base/shell.h"
#include "config/qorconf.h"
#include "store/cluster_query.h"
#include "store/pools.h"
#include "lab/ns_host.h"

namespace qortest {

void StoreTest::SetUp() {
  qor::ForgetSilentAddresses();
  qor::CloseConnectionPool();
  qor::ConnectionPool = 1;
  qor::InitClusterMem();
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

void StoreTest::Fill(const std::vector<Row>& master, const std::vector<Row>& slave,
                     const std::set<std::string>& down) {
  ResetTables();
  if (!master.empty()) Sql("master", InsertRows(master));
  if (!slave.empty()) Sql("slave", InsertRows(slave));
  qor::CloseConnectionPool();
  Connect(down);
}

int StoreTest::Select(const char* cond, qor::ActInfo* info, int target) {
  return qor::GetClusterSql(kMasterAddr, "qordirect", QOR_TESTDB_PASSWORD, cond, info,
                            qor::ClustsTemp, target);
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

namespace {

std::string ThirdDir() {
  return std::string(QOR_TESTDB_DIR) + "/third";
}

bool ThirdScript(const std::vector<std::string>& args) {
  // The script creates the user with this password unless told otherwise.
  std::vector<std::string> argv{"/usr/bin/env", "QOR_TEST_DBPWD=" QOR_TESTDB_PASSWORD, "/bin/bash",
                                QOR_SOURCE_DIR "/scripts/testdb.sh"};
  argv.insert(argv.end(), args.begin(), args.end());
  RunOptions o;
  o.timeout_sec = 180;
  RunResult r = RunProgram(argv, o);
  std::ofstream(QOR_TESTDB_DIR "/third.log") << r.out << r.err;
  return r.status == 0;
}

}  // namespace

ThirdServer::ThirdServer() {
  started_ = ThirdScript({"start", kThirdAddr, ThirdDir()});
}

bool ThirdServer::Stop() {
  if (!started_) return true;
  Pause(false);
  started_ = false;
  return ThirdScript({"stop", ThirdDir()});
}

bool ThirdServer::Pause(bool stop) {
  long pid = 0;
  if (FILE* f = std::fopen((ThirdDir() + "/mysqld.pid").c_str(), "r")) {
    if (std::fscanf(f, "%ld", &pid) != 1) pid = 0;
    std::fclose(f);
  }
  return started_ && pid > 0 && kill(static_cast<pid_t>(pid), stop ? SIGSTOP : SIGCONT) == 0;
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
      "insert into clusters (hostname, ipaddress, role, role_id, status, cpucores, cpuloadavgpp) "
      "values ";
  for (size_t i = 0; i < rows.size(); ++i) {
    const Row& r = rows[i];
    sql += (i ? ", ('" : "('") + r.hostname + "', '" + r.ipaddress + "', '" + r.role + "', " +
           std::to_string(r.role_id) + ", " + std::to_string(r.status) + ", " +
           std::to_string(r.cpucores) + ", " + r.cpuloadavgpp + ")";
  }
  return sql + ";";
}

}  // namespace qortest
