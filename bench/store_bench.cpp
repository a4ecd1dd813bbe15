// Round trips and wall time of one GetClusterSql("-all") over 64 rows, and of ReconnectCluster
// when both servers answer: the median of 100 runs each, against two real database servers.
// Usage: store_bench MASTER_ADDR SLAVE_ADDR PASSWORD   (servers prepared by bench/cycle.sh)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "config/qorconf.h"
#include "store/cluster_query.h"
#include "store/pools.h"

namespace {

// Statements and pings the master's server has answered so far (its own status counters).
long ServerRoundTrips() {
  qor::DbConn conn(qor::mpool);
  long total = 0;
  conn.Query("show global status where Variable_name in ('Questions','Com_admin_commands');",
             [&](int n, const char* const* v) {
               if (n >= 2 && v[1]) total += std::atol(v[1]);
             });
  return total;
}

struct Figure {
  double median_ms;
  double roundtrips;
};

Figure Measure(int runs, const std::function<void()>& body) {
  // What measuring costs by itself: one status query and the ping of its own connection.
  long a = ServerRoundTrips();
  long b = ServerRoundTrips();
  long overhead = b - a;
  std::vector<double> ms;
  long before = ServerRoundTrips();
  for (int i = 0; i < runs; ++i) {
    auto t0 = std::chrono::steady_clock::now();
    body();
    auto t1 = std::chrono::steady_clock::now();
    ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
  }
  long after = ServerRoundTrips();
  std::sort(ms.begin(), ms.end());
  return {ms[ms.size() / 2], static_cast<double>(after - before - overhead) / runs};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: %s MASTER_ADDR SLAVE_ADDR PASSWORD\n", argv[0]);
    return 2;
  }
  qor::Cluster = 1;
  qor::ClustRole = qor::kRoleMaster;
  qor::cnf.clustmaster = argv[1];
  qor::cnf.clustslave = argv[2];
  qor::cnf.dbpwd = argv[3];
  qor::ConnectionPool = 1;
  qor::ReconnectCluster();
  if (qor::mpool == nullptr || qor::spool == nullptr) {
    std::fprintf(stderr, "store_bench: the servers did not answer\n");
    return 1;
  }
  {
    qor::DbConn conn(qor::mpool);
    conn.Execute("delete from clusters;");
    for (int i = 0; i < 64; ++i) {
      qor::SqlText sql;
      sql.format(
          "insert into clusters (hostname,ipaddress,clusterid,role,role_id,status,"
          "cpucores,cpuloadavgpp,qorver) values ('node%02d','10.0.0.%d','c1','member',"
          "'102','100','8','0.50','4.0.16');",
          i, i + 1);
      conn.Execute(sql.c_str());
    }
  }
  qor::ActInfo info;
  qor::ClusterRows rows;
  Figure query =
      Measure(100, [&] { qor::GetClusterSql(argv[1], "-all", &info, rows, qor::Db::kMaster); });
  if (info.count != 64) std::fprintf(stderr, "store_bench: read %d rows, not 64\n", info.count);
  Figure reconnect = Measure(100, [] { qor::ReconnectCluster(); });
  std::printf(
      "GetClusterSql(\"-all\") over %d rows: median %.3f ms, %.1f round trips to the "
      "server per call\n",
      info.count, query.median_ms, query.roundtrips);
  std::printf(
      "ReconnectCluster, both servers answering: median %.3f ms, %.1f round trips to the "
      "master's database per call\n",
      reconnect.median_ms, reconnect.roundtrips);
  qor::DbConn(qor::mpool).Execute("delete from clusters;");
  qor::CloseConnectionPool();
  return 0;
}
