#include "support/store_env.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "config/qorconf.h"
#include "lab/ns_host.h"
#include "net/icmp_echo.h"
#include "store/pools.h"

namespace qortest {

std::string Sql(const std::string& side, const std::string& statements) {
  RunResult r =
      qorlab::RootSql(std::string(QOR_TESTDB_DIR) + "/" + side + "/mysqld.sock", statements);
  if (r.status != 0) ADD_FAILURE() << side << ": " << statements << "\n" << r.out << r.err;
  return r.status == 0 ? r.out : r.out + r.err;
}

void ResetTables() {
  for (const char* side : {"master", "slave"}) {
    Sql(side,
        "delete from clusters; alter table clusters auto_increment=1; delete from containers; "
        "delete from qorclustd_maintenance;");
  }
}

void UseTestCluster(const char* role, const char* own) {
  qor::cnf = qor::Cnf{};
  qor::Cluster = 1;
  qor::cnf.cluster = "1";
  qor::cnf.clustid = "t1";
  qor::cnf.clustrole = role;
  qor::cnf.clustmaster = kMasterAddr;
  qor::cnf.clustslave = kSlaveAddr;
  qor::cnf.dbsvr = kMasterAddr;
  qor::cnf.dbpwd = QOR_TESTDB_PASSWORD;
  qor::ClustRole = qor::RoleCodeOf(role);
  qor::CurrentSvr = own;
}

std::string TestClusterConf(const char* role, const char* netif) {
  return std::string("qor_cluster=1\nqor_clustid=c1\nqor_clustrole=") + role +
         "\nqor_clustmaster=" + kMasterAddr + "\nqor_clustslave=" + kSlaveAddr +
         "\nqor_netif=" + netif + "\nqor_dbpwd='" QOR_TESTDB_PASSWORD "'\n";
}

PingSeam::PingSeam() {
  qor::SetEchoSocketOpener([] { return errno = EPERM, -1; });
  real = [this](std::string& c) {
    return c.rfind("/bin/ping ", 0) != 0 || !blocked.count(c.substr(c.rfind(' ') + 1));
  };
}

}  // namespace qortest
