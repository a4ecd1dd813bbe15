// The store's test environment: the two test database servers (master 127.0.0.1, slave
// 127.0.0.2, started by the suite's fixture), SQL run as their root for setting up and inspecting
// rows, the configuration of a test cluster, and a shell seam that makes chosen addresses stop
// answering ping while every other command runs for real.
#pragma once

#include <set>
#include <string>

#include "lab/ns_host.h"
#include "lab/syslog_catcher.h"
#include "lab/temp_dir.h"
#include "support/fakes.h"

namespace qortest {

using qorlab::RunOptions;
using qorlab::RunResult;
using qorlab::SyslogCatcher;
using qorlab::TempDir;

constexpr const char* kMasterAddr = "127.0.0.1";
constexpr const char* kSlaveAddr = "127.0.0.2";

// Runs statements as root on the server of side ("master" or "slave") in database qor; returns
// the tab-separated output without column names. Fails the test on a client error.
std::string Sql(const std::string& side, const std::string& statements);
// Empties clusters and containers on both servers.
void ResetTables();

// Configuration of a cluster node with the test servers as master and slave and the test
// password; role is a role text ("master", "slave", "member"), own the node's address.
void UseTestCluster(const char* role, const char* own);

// The configuration file of a node of the test cluster, for the real binary: netif names the
// interface whose address is the node's own ("lo" gives 127.0.0.1, "0" no address).
std::string TestClusterConf(const char* role, const char* netif);

// Pings go through the shell from the first seam on, as where no ICMP socket opens: those of the
// blocked addresses print nothing (no answer); everything else runs for real.
class PingSeam : public FakeShell {
 public:
  PingSeam();
  std::set<std::string> blocked;
};

}  // namespace qortest
