// Common ground of the store tests: every test starts with empty tables on both servers, no
// pools, the test cluster's configuration, a PingSeam in front of the shell and a drained log
// catcher, and leaves no take-over script running, pools closed, the shell runner restored and the
// tables empty behind it.
// Rows are set up and inspected with SQL as root.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "lab/syslog_catcher.h"
#include "membership/node_state.h"
#include "store/clust_record.h"
#include "support/store_env.h"

namespace qortest {

extern SyslogCatcher* g_syslog;
using Lines = std::vector<std::string>;

// A row of the clusters table; role_id is the role's code (0 for any other role text), and
// updated_at lies silentFor seconds back by the database's clock.
struct Row {
  std::string hostname, ipaddress, role;
  int status = 100;
  int cpucores = 0;
  std::string cpuloadavgpp = "0";  // decimal text, as stored
  int64_t last_writemill = 0;
  int silentFor = 0;
  int64_t tpl_syncmill = 0, tpl_updatemill = 0;
  int tpl_syncstate = 0;
};
// One insert statement for rows (text values must not need escaping).
std::string InsertRows(const std::vector<Row>& rows);

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Lines logged since the last call (or since the test began).
  std::vector<std::string> Logs() { return g_syslog->Take(); }
  // Builds the pools as ReconnectCluster does while the addresses in down do not answer ping;
  // the seam keeps them blocked afterwards; its command record and the log start empty.
  void Connect(const std::set<std::string>& down = {});
  // GetClusterSql as the program calls it, naming the master's address.
  int Select(const char* cond, qor::ActInfo* info, qor::Db db = qor::Db::kMaster);
  // Runs body under each sql_mode the statements must be safe in, set as the master's global
  // mode (connections made after the switch take it): the server's own, then the same with
  // NO_BACKSLASH_ESCAPES. The server's own mode is set back afterwards.
  void ForEachSqlMode(const std::function<void()>& body);

  PingSeam seam;
  qor::ClusterRows selected;  // what Select reads into
};

// The store fixture plus a configuration file of the test cluster that each heartbeat re-reads
// (own interface lo, so this node's address is 127.0.0.1 whatever its role), pools to both
// servers, and a fresh state of the node.
class HeartbeatTest : public StoreTest {
 protected:
  void SetUp() override;
  void TearDown() override;
  // Makes this node role ("master", "slave", "member") in memory and in the file it re-reads.
  void Become(const char* role);
  void Put(const std::string& side, const std::vector<Row>& rows) { Sql(side, InsertRows(rows)); }
  // The columns cols of every row of side in id order, tab-separated, one line per row.
  std::string Rows(const std::string& side,
                   const std::string& cols = "hostname,role,status,last_writemill");

  std::string host;  // this node's host name
  qor::NodeState node;
  TempDir dir;

 private:
  qor::FixedText<128> savedCnffile_;
};

// Tab-joined values ending in a newline, as Rows prints one row.
std::string Line(std::initializer_list<std::string> values);

// Host names of entries 0 to info.count-1 of records.
std::vector<std::string> Hosts(const qor::ActInfo& info, qor::ClustRecord* const* records);
// Addresses of the ping commands in commands, in order.
std::vector<std::string> Pinged(const std::vector<std::string>& commands);

}  // namespace qortest
