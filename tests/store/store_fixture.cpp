#include "store_fixture.h"

#include <cstdio>
#include <fstream>

#include "base/shell.h"
#include "config/qorconf.h"
#include "store/cluster_query.h"
#include "store/pools.h"
#include "support/ns_host.h"

namespace qortest {

void StoreTest::SetUp() {
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
  started_ = false;
  return ThirdScript({"stop", ThirdDir()});
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

std::string Handle(const void* p) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", p);
  return text;
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
