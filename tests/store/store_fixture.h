// Common ground of the store tests: every test starts with empty tables on both servers, no
// pools, the test cluster's configuration, a PingSeam in front of the shell and a drained log
// catcher, and leaves pools closed, the shell runner restored and the tables empty behind it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "store/clust_record.h"
#include "support/store_env.h"
#include "lab/syslog_catcher.h"

namespace qortest {

extern SyslogCatcher* g_syslog;

// A row of the clusters table with the columns the selection tests vary.
struct Row {
  std::string hostname;
  std::string ipaddress;
  std::string role;
  int role_id;
  int status;
  int cpucores;
  const char* cpuloadavgpp;  // decimal text, as stored
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
  // Empty tables, then these rows on each side, then pools built as Connect(down) does.
  void Fill(const std::vector<Row>& master, const std::vector<Row>& slave = {},
            const std::set<std::string>& down = {});
  // GetClusterSql as the program calls it, naming the master's address.
  int Select(const char* cond, qor::ActInfo* info, int target = 0);
  // Runs body under each sql_mode the statements must be safe in, set as the master's global
  // mode (connections made after the switch take it): the server's own, then the same with
  // NO_BACKSLASH_ESCAPES. The server's own mode is set back afterwards.
  void ForEachSqlMode(const std::function<void()>& body);

  PingSeam seam;
};

// A third server of one test's own on 127.0.0.3, started by the test database script and always
// stopped by it, for tests that stop a database while the shared pair keeps running.
constexpr const char* kThirdAddr = "127.0.0.3";
class ThirdServer {
 public:
  ThirdServer();
  ~ThirdServer() { Stop(); }
  ThirdServer(const ThirdServer&) = delete;
  ThirdServer& operator=(const ThirdServer&) = delete;

  bool started() const { return started_; }
  bool Stop();
  // Stops (SIGSTOP) or continues the server's process: a server that hangs.
  bool Pause(bool stop);

 private:
  bool started_ = false;
};

// Host names of entries 0 to info.count-1 of records.
std::vector<std::string> Hosts(const qor::ActInfo& info, qor::ClustRecord* const* records);
// Addresses of the ping commands in commands, in order.
std::vector<std::string> Pinged(const std::vector<std::string>& commands);

}  // namespace qortest
