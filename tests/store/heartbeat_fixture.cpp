#include "heartbeat_fixture.h"

#include <unistd.h>

#include "config/qorconf.h"
#include "membership/heartbeat.h"
#include "store/cluster_query.h"

namespace qortest {

void HeartbeatTest::SetUp() {
  StoreTest::SetUp();
  savedCnffile_ = qor::Cnffile;
  char name[128] = {};
  gethostname(name, sizeof name - 1);
  host = name;
  Become("master");
  qor::ClustCount = 0;
  qor::Tplsync = 0;
  qor::Clust = qor::ClustRecord{};
  Connect();
}

void HeartbeatTest::TearDown() {
  qor::Cnffile = savedCnffile_;
  qor::ClustCount = 0;
  qor::Tplsync = 0;
  StoreTest::TearDown();
}

void HeartbeatTest::Become(const char* role) {
  UseTestCluster(role, kMasterAddr);
  qor::Cnffile.set(dir.Write(".qorconf", TestClusterConf(role, "lo")));
  ASSERT_EQ(qor::GetQorconf(), 0);
}

void HeartbeatTest::PutRow(const std::string& side, const std::string& hostname,
                           const std::string& role, int status, int64_t lastwrite, int tplstate) {
  Sql(side,
      "insert into clusters (hostname, role, status, last_writemill, tpl_syncstate) values ('" +
          hostname + "', '" + role + "', " + std::to_string(status) + ", " +
          std::to_string(lastwrite) + ", " + std::to_string(tplstate) + ");");
}

std::string HeartbeatTest::Rows(const std::string& side, const std::string& cols) {
  return Sql(side, "select " + cols + " from clusters order by id;");
}

void HeartbeatTest::AgeRows() {
  for (const char* side : {"master", "slave"}) {
    Sql(side, "update clusters set updated_at = '2001-01-01 00:00:00';");
  }
}

int HeartbeatTest::Moved(const std::string& side) {
  return std::stoi(
      Sql(side, "select count(*) from clusters where updated_at > '2001-01-01 00:00:00';"));
}

std::string Line(std::initializer_list<std::string> values) {
  std::string line;
  bool first = true;
  for (const std::string& v : values) {
    line += (first ? "" : "\t") + v;
    first = false;
  }
  return line + "\n";
}

}  // namespace qortest
