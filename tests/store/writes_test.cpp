// The row writes against the two real databases: which database each one reaches, which columns
// of which rows it changes (every other column must stay as it was), and what it reports when it
// cannot write.
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "config/qorconf.h"
#include "config/qorver.h"
#include "metrics/utilisation.h"
#include "store/cluster_writes.h"
#include "store/pools.h"
#include "store_fixture.h"
#include "support/fakes.h"

namespace qortest {
namespace {

using qor::ClustRecord;

const char* const kColumns[] = {
    "id",           "hostname",      "ipaddress",     "clusterid",      "role",
    "role_id",      "status",        "dbwrite_count", "last_writemill", "tpl_updatemill",
    "tpl_syncmill", "tpl_syncstate", "cpuinfo",       "cpus",           "cpuphycores",
    "cpucores",     "cpuprocs",      "cpuloadavg",    "cpuloadavgpp",   "containers",
    "updated_at",   "qortimemill",   "cpuutil",       "memutil",        "diskutil",
    "qorver",       "created_at"};

std::string ColumnList() {
  std::string list;
  for (const char* c : kColumns) list += std::string(list.empty() ? "" : ",") + c;
  return list;
}

using RowText = std::map<std::string, std::string>;
using RowMap = std::map<int, RowText>;

// Every row of side's table, by id, as the database shows the columns.
RowMap Table(const std::string& side) {
  std::string out = Sql(side, "select " + ColumnList() + " from clusters order by id;");
  RowMap rows;
  for (size_t pos = 0, end; pos < out.size(); pos = end + 1) {
    end = out.find('\n', pos);
    std::string line = out.substr(pos, end - pos) + "\t";
    RowText row;
    size_t start = 0;
    for (const char* c : kColumns) {
      size_t tab = line.find('\t', start);
      row[c] = line.substr(start, tab - start);
      start = tab + 1;
    }
    rows[std::stoi(row["id"])] = row;
  }
  return rows;
}

constexpr const char* kLongAgo = "2001-02-03 04:05:06";

// Rows whose every column holds a value that no write of these tests writes, stamped long ago.
std::string SeedRows(const std::vector<std::pair<int, std::string>>& idHosts) {
  std::string sql =
      "delete from clusters; alter table clusters auto_increment = 1; insert into clusters (" +
      ColumnList() + ") values ";
  for (size_t i = 0; i < idHosts.size(); ++i) {
    sql += std::string(i ? ", " : "") + "(" + std::to_string(idHosts[i].first) + ", '" +
           idHosts[i].second +
           "', '10.0.0.1', 'old-c', 'slave', 101, 200, 5, 1111, 2222, 3333, 0, 'old cpu', 1, 2, "
           "3, 4, 0.50, 0.25, 6, '" +
           kLongAgo + "', 4444, 0.10, 0.20, 0.30, '1.0', '" + kLongAgo + "')";
  }
  return sql + ";";
}

// SampleRecord, which differs from the seeded rows in every field, with the id given.
ClustRecord Rec(int id) {
  ClustRecord r = SampleRecord();
  r.id = id;
  return r;
}

class StoreWrites : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    qor::CpuUtil = 0.61;
    qor::MemUtil = 0.62;
    qor::DiskUtil = 0.63;
    qor::QorVersion = "4.2.0";
    qor::cnf.cldbname = "qor";
    qor::cnf.clustsweep = 30;
  }
  // The same rows in both databases, with the same ids.
  void SeedBoth(const std::vector<std::pair<int, std::string>>& idHosts) {
    for (const char* side : {"master", "slave"}) Sql(side, SeedRows(idHosts));
  }
  // Seeds both databases and builds the pools while the addresses in down do not answer.
  void Prepare(const std::vector<std::pair<int, std::string>>& idHosts,
               const std::set<std::string>& down = {}) {
    SeedBoth(idHosts);
    qor::CloseConnectionPool();
    Connect(down);
    master_ = Table("master");
    slave_ = Table("slave");
  }
  // What changed on side since Prepare; updated_at of a changed row is checked to be stamped
  // just now and left out; "(gone)" or "(new)" for a row that one side lacks.
  RowMap Changed(const std::string& side) {
    const RowMap& before = side == "master" ? master_ : slave_;
    RowMap after = Table(side), changes;
    for (const auto& [id, row] : before) {
      if (!after.count(id)) changes[id]["(gone)"] = "";
      for (const auto& [col, value] : row) {
        if (after.count(id) && after[id].at(col) != value) changes[id][col] = after[id].at(col);
      }
    }
    for (const auto& [id, row] : after) {
      if (!before.count(id)) changes[id]["(new)"] = "";
    }
    for (auto& [id, cols] : changes) {
      if (cols.count("(new)") || cols.count("(gone)")) continue;
      EXPECT_EQ(cols.erase("updated_at"), 1u) << side << " row " << id << " kept its updated_at";
      EXPECT_EQ(
          Sql(side, "select updated_at > now() - interval 1 minute from clusters where id = " +
                        std::to_string(id) + ";"),
          "1\n");
    }
    return changes;
  }
  // rc and the changes of a write that reached the database of reached ("master", "slave"), or
  // none ("") and logged connErr.
  void ExpectReached(int rc, const std::string& reached, const RowMap& changed,
                     const std::string& connErr = "") {
    EXPECT_EQ(rc, reached.empty() ? 500 : 0);
    EXPECT_EQ(Changed("master"), reached == "master" ? changed : RowMap{});
    EXPECT_EQ(Changed("slave"), reached == "slave" ? changed : RowMap{});
    EXPECT_EQ(Logs(),
              reached.empty() ? std::vector<std::string>{connErr} : std::vector<std::string>{});
  }

  RowMap master_, slave_;
};

// "column=value ..." on top of base.
RowText Cols(const std::string& text, RowText base = {}) {
  std::istringstream in(text);
  for (std::string kv; in >> kv;) base[kv.substr(0, kv.find('='))] = kv.substr(kv.find('=') + 1);
  return base;
}

const RowText kShort =
    Cols("status=100 cpuloadavg=1.24 cpuloadavgpp=0.07 containers=9 tpl_syncstate=300");
const RowText kShortTpl = Cols("tpl_updatemill=1700000000456 tpl_syncmill=1700000000789", kShort);
const RowText kFull = Cols(
    "hostname=node-1 ipaddress=10.0.0.5 clusterid=c1 role=member role_id=102 cpus=2 cpuphycores=8 "
    "cpucores=16 cpuprocs=32 cpuutil=0.61 memutil=0.62 diskutil=0.63 qorver=4.2.0",
    kShortTpl);
const char* const kLastWrite = "last_writemill=1700000000123";

using StoreWritesRows = StoreWrites;

// Only the columns of the form change; dbwrite_count, cpuinfo, qortimemill and created_at never.
TEST_F(StoreWritesRows, UpdateFormsChangeExactlyTheirColumnsOfTheRowWithTheRecordsId) {
  struct Case {
    int withlastwrite, full;
    RowText changed;
  } cases[] = {{1, 1, Cols(kLastWrite, kFull)},
               {0, 1, kFull},
               {1, 0, Cols(kLastWrite, kShortTpl)},
               {0, 0, kShort}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "withlastwrite " << c.withlastwrite << " full " << c.full);
    Prepare({{3, "old-host"}, {4, "bystander"}});
    ClustRecord rec = Rec(3);
    ClustRecord* records[] = {&rec};
    int rc = qor::UpdateClusterSql(kMasterAddr, records, 0, c.withlastwrite, c.full, 0);
    EXPECT_EQ(rec.role_id, 102) << "the caller's record gets the derived role_id";
    ExpectReached(rc, "master", {{3, c.changed}});
  }
}

// The writes by host name: all rows of the host, in the first open pool's database whatever
// address the caller names (the removal's selector words are a test of their own).
struct HostWrite {
  const char* name;
  std::function<int(const char* dbsvr, const char* host)> call;
  RowText changed;
  const char* connErr;
};

const HostWrite kHostWrites[] = {
    {"SetOldClusterSvrSql", qor::SetOldClusterSvrSql, Cols("status=300 last_writemill=0"),
     "setoldclustersvrsql db connection error"},
    {"SetTplOldClusterSvrSql", qor::SetTplOldClusterSvrSql,
     Cols("tpl_syncstate=300 tpl_syncmill=0"), "settploldclustersvrsql db connection error"},
    {"UpdateTplsyncSql",
     [](const char* dbsvr, const char* host) {
       return qor::UpdateTplsyncSql(dbsvr, host, 1700000000777, 100);
     },
     Cols("tpl_syncstate=100 tpl_syncmill=1700000000777"), "updatetplsyncsql db connection error"},
    {"RemoveClusterSvrsSql", qor::RemoveClusterSvrsSql, Cols("(gone)="),
     "removeclustersvrssql db connection error"},
};

TEST_F(StoreWritesRows, HostWritesReachTheFirstOpenPool) {
  struct Case {
    const char* address;
    std::set<std::string> down;
    const char* reached;
  } cases[] = {
      {kMasterAddr, {}, "master"},
      {kSlaveAddr, {}, "master"},
      {kMasterAddr, {kMasterAddr}, "slave"},
      {kSlaveAddr, {kMasterAddr, kSlaveAddr}, ""},
  };
  for (const HostWrite& w : kHostWrites) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(w.name) + " " + c.address + " down " +
                   std::to_string(c.down.size()));
      Prepare({{3, "node-a"}, {4, "node-b"}, {5, "node-a"}}, c.down);
      ExpectReached(w.call(c.address, "node-a"), c.reached, {{3, w.changed}, {5, w.changed}},
                    w.connErr);
    }
  }
}

// Quotes and percent signs are parts of a host name, never of the statement, in either sql_mode;
// a backslash, which means one thing or another by mode, is refused.
TEST_F(StoreWritesRows, HostilePartsOfHostNamesAreTakenLiterallyInEveryMode) {
  ForEachSqlMode([&] {
    for (const HostWrite& w : kHostWrites) {
      Prepare({{3, "node-a"}, {4, "node-b"}, {5, "o''b%"}});
      for (const char* host :
           {"node-a' or '1'='1", "x' or 1=1 -- ", "node-%", "node_a", "'",
            "node-a'; delete from clusters; -- ", "node-a\\", "x\\' or 1=1 -- "}) {
        SCOPED_TRACE(std::string(w.name) + " " + host);
        const bool refused = std::string(host).find('\\') != std::string::npos;
        EXPECT_EQ(w.call(kMasterAddr, host), refused ? 501 : 0);
        EXPECT_TRUE(Changed("master").empty());
        // Matching no row is no error; a refusal is logged.
        EXPECT_EQ(Logs().size(), refused ? 1u : 0u);
      }
      SCOPED_TRACE(w.name);
      ExpectReached(w.call(kMasterAddr, "o'b%"), "master", {{5, w.changed}});
    }
  });
}

TEST_F(StoreWritesRows, RemoveSelectorWords) {
  const std::vector<std::pair<int, std::string>> rows = {
      {1, "mhost"},      {2, "shost"},    {3, "node-a"}, {4, "qordummyd1"}, {5, "qordummyd-22"},
      {6, "xqordummyd"}, {7, "qordummy"}, {8, "50%"},    {9, "-ALL"},       {10, "qordummyd"}};
  const std::set<int> kAll = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  struct Case {
    const char* selector;
    std::set<int> removed;
  } cases[] = {
      {"-all", kAll}, {"", kAll}, {"-alldummy", {4, 5, 10}}, {"50%", {8}},
      {"-ALL", {9}},  {"%", {}},  {"qordummyd%", {}},        {"nohost", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.selector);
    Prepare(rows);
    RowMap gone;
    for (int id : c.removed) gone[id]["(gone)"] = "";
    ExpectReached(qor::RemoveClusterSvrsSql(kSlaveAddr, c.selector), "master", gone);
  }
}

// Member rows unchanged for more than clustsweep minutes by the database clock go.
class StoreWritesSweep : public StoreWrites {
 protected:
  static std::string SweepRows() {
    return "insert into clusters (id, hostname, role, updated_at) values "
           "(1, 'mhost', 'master', now() - interval 2 hour), "
           "(2, 'shost', 'slave', now() - interval 2 hour), "
           "(3, 'm-old', 'member', now() - interval 31 minute), "
           "(4, 'm-fresh', 'member', now() - interval 29 minute), "
           "(5, 'm-ancient', 'member', now() - interval 2 day), "
           "(6, 'standby', 'standby', now() - interval 40 minute), "
           "(7, 'm-now', 'member', now());";
  }
  static std::vector<std::string> Hosts(const std::string& side) {
    std::vector<std::string> hosts;
    for (const auto& [id, row] : Table(side)) hosts.push_back(row.at("hostname"));
    return hosts;
  }
  const std::vector<std::string> all_ = {"mhost",     "shost",   "m-old", "m-fresh",
                                         "m-ancient", "standby", "m-now"};
  const std::vector<std::string> swept_ = {"mhost", "shost", "m-fresh", "m-now"};
};

TEST_F(StoreWritesSweep, RemovesStaleMembersFromTheMastersDatabaseElseTheSlaves) {
  struct Case {
    std::set<std::string> down;
    const char* swept;
  } cases[] = {{{}, "master"}, {{kSlaveAddr}, "master"}, {{kMasterAddr}, "slave"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.swept);
    for (const char* side : {"master", "slave"}) Sql(side, "delete from clusters;" + SweepRows());
    qor::CloseConnectionPool();
    Connect(c.down);
    EXPECT_EQ(qor::SweepClustersql(kSlaveAddr), 0);
    const bool master = std::string(c.swept) == "master";
    EXPECT_EQ(Hosts("master"), master ? swept_ : all_);
    EXPECT_EQ(Hosts("slave"), master ? all_ : swept_);
    EXPECT_TRUE(Logs().empty());
  }
}

}  // namespace
}  // namespace qortest
