// The row writes against the two real databases: which database each one reaches, which columns
// of which rows it changes (every other column must stay as it was), and what it reports when it
// cannot write.
#include <functional>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "config/qorconf.h"
#include "config/qorver.h"
#include "metrics/utilisation.h"
#include "store/cluster_writes.h"
#include "store/pools.h"
#include "store_fixture.h"

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

using RowText = std::map<std::string, std::string>;

// Every row of side's table, by id, as the database shows the columns.
std::map<int, RowText> Table(const std::string& side) {
  std::string list;
  for (const char* c : kColumns) list += std::string(list.empty() ? "" : ",") + c;
  std::string out = Sql(side, "select " + list + " from clusters order by id;");
  std::map<int, RowText> rows;
  size_t pos = 0;
  while (pos < out.size()) {
    size_t end = out.find('\n', pos);
    std::string line = out.substr(pos, end - pos);
    pos = end == std::string::npos ? out.size() : end + 1;
    RowText row;
    size_t start = 0;
    for (const char* c : kColumns) {
      size_t tab = line.find('\t', start);
      row[c] = line.substr(start, tab - start);
      start = tab == std::string::npos ? line.size() : tab + 1;
    }
    rows[std::stoi(row["id"])] = row;
  }
  return rows;
}

// The columns of after that differ from before, with their new values; "(gone)" or "(new)" for
// a row that one side lacks.
std::map<int, RowText> Changes(const std::map<int, RowText>& before,
                               const std::map<int, RowText>& after) {
  std::map<int, RowText> changes;
  for (const auto& [id, row] : before) {
    auto it = after.find(id);
    if (it == after.end()) {
      changes[id]["(gone)"] = "";
      continue;
    }
    for (const auto& [col, value] : row) {
      if (it->second.at(col) != value) changes[id][col] = it->second.at(col);
    }
  }
  for (const auto& [id, row] : after) {
    if (!before.count(id)) changes[id]["(new)"] = "";
  }
  return changes;
}

constexpr const char* kLongAgo = "2001-02-03 04:05:06";

// Removes updated_at from every changed row after checking that the database stamped it just
// now, so that the rest can be compared exactly.
void ExpectStampedNow(const std::string& side, std::map<int, RowText>& changes) {
  for (auto& [id, cols] : changes) {
    if (cols.count("(new)") || cols.count("(gone)")) continue;
    EXPECT_EQ(cols.erase("updated_at"), 1u) << side << " row " << id << " kept its updated_at";
    EXPECT_EQ(Sql(side, "select updated_at > now() - interval 1 minute from clusters where id = " +
                            std::to_string(id) + ";"),
              "1\n");
  }
}

// Rows whose every column holds a value that no write of these tests writes, stamped long ago.
std::string SeedRows(const std::vector<std::pair<int, std::string>>& idHosts) {
  std::string sql =
      "delete from clusters; insert into clusters (id, hostname, ipaddress, "
      "clusterid, role, role_id, status, dbwrite_count, last_writemill, "
      "tpl_updatemill, tpl_syncmill, tpl_syncstate, cpuinfo, cpus, cpuphycores, "
      "cpucores, cpuprocs, cpuloadavg, cpuloadavgpp, containers, updated_at, "
      "qortimemill, cpuutil, memutil, diskutil, qorver, created_at) values ";
  for (size_t i = 0; i < idHosts.size(); ++i) {
    sql += std::string(i ? ", " : "") + "(" + std::to_string(idHosts[i].first) + ", '" +
           idHosts[i].second +
           "', '10.0.0.1', 'old-c', 'slave', 101, 200, 5, 1111, 2222, 3333, 0, 'old cpu', 1, 2, "
           "3, 4, 0.50, 0.25, 6, '" +
           kLongAgo + "', 4444, 0.10, 0.20, 0.30, '1.0', '" + kLongAgo + "')";
  }
  return sql + ";";
}

// A record that differs from the seeded rows in every field.
ClustRecord NewRecord(int id) {
  ClustRecord r;
  r.id = id;
  r.hostname = "new-host";
  r.ipaddress = "10.0.0.9";
  r.clusterid = "new-c";
  r.role = "member";
  r.role_id = 55;
  r.status = 100;
  r.dbwrite_count = 77;
  r.last_writemill = 1700000000001;
  r.tpl_updatemill = 1700000000002;
  r.tpl_syncmill = 1700000000003;
  r.tpl_syncstate = 300;
  r.cpuinfo = "new cpu";
  r.cpus = 2;
  r.cpuphycores = 8;
  r.cpucores = 16;
  r.cpuprocs = 32;
  r.cpuloadavg = 1.5;
  r.cpuloadavgpp = 0.75;
  r.containers = 9;
  r.cpuutil = 0.91;
  r.memutil = 0.92;
  r.diskutil = 0.93;
  r.qorver = "rec-ver";
  r.updated_at = 12345;
  r.qortimemill = 999;
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
  void Snapshot() {
    master_ = Table("master");
    slave_ = Table("slave");
  }
  // What changed on each side since Snapshot, updated_at checked and left out.
  std::map<int, RowText> MasterChanges() {
    auto c = Changes(master_, Table("master"));
    ExpectStampedNow("master", c);
    return c;
  }
  std::map<int, RowText> SlaveChanges() {
    auto c = Changes(slave_, Table("slave"));
    ExpectStampedNow("slave", c);
    return c;
  }

  std::map<int, RowText> master_, slave_;
};

const RowText kFullColumns = {{"hostname", "new-host"},
                              {"ipaddress", "10.0.0.9"},
                              {"clusterid", "new-c"},
                              {"role", "member"},
                              {"role_id", "102"},
                              {"status", "100"},
                              {"cpus", "2"},
                              {"cpuphycores", "8"},
                              {"cpucores", "16"},
                              {"cpuprocs", "32"},
                              {"cpuloadavg", "1.50"},
                              {"cpuloadavgpp", "0.75"},
                              {"containers", "9"},
                              {"cpuutil", "0.61"},
                              {"memutil", "0.62"},
                              {"diskutil", "0.63"},
                              {"tpl_updatemill", "1700000000002"},
                              {"tpl_syncmill", "1700000000003"},
                              {"tpl_syncstate", "300"},
                              {"qorver", "4.2.0"}};

RowText With(RowText cols, const RowText& more) {
  for (const auto& [k, v] : more) cols[k] = v;
  return cols;
}

struct UpdateForm {
  int withlastwrite, full;
  RowText changed;
};

void PrintTo(const UpdateForm& f, std::ostream* os) {
  *os << "withlastwrite " << f.withlastwrite << " full " << f.full;
}

class StoreWritesUpdateForms : public StoreWrites,
                               public ::testing::WithParamInterface<UpdateForm> {};

// Only the columns of the form change; dbwrite_count, cpuinfo, qortimemill and created_at never.
TEST_P(StoreWritesUpdateForms, ChangeExactlyTheirColumnsOfTheRowWithTheRecordsId) {
  const UpdateForm& f = GetParam();
  SeedBoth({{3, "old-host"}, {4, "bystander"}});
  Connect();
  Snapshot();
  ClustRecord rec = NewRecord(3);
  ClustRecord* records[] = {&rec};
  EXPECT_EQ(qor::UpdateClusterSql(kMasterAddr, records, 0, f.withlastwrite, f.full, 0), 0);
  EXPECT_EQ(rec.role_id, 102) << "the caller's record gets the derived role_id";
  EXPECT_EQ(MasterChanges(), (std::map<int, RowText>{{3, f.changed}}));
  EXPECT_TRUE(SlaveChanges().empty());
  EXPECT_TRUE(Logs().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Store, StoreWritesUpdateForms,
    ::testing::Values(UpdateForm{1, 1, With(kFullColumns, {{"last_writemill", "1700000000001"}})},
                      UpdateForm{0, 1, kFullColumns},
                      UpdateForm{1,
                                 0,
                                 {{"status", "100"},
                                  {"last_writemill", "1700000000001"},
                                  {"cpuloadavg", "1.50"},
                                  {"cpuloadavgpp", "0.75"},
                                  {"containers", "9"},
                                  {"tpl_updatemill", "1700000000002"},
                                  {"tpl_syncmill", "1700000000003"},
                                  {"tpl_syncstate", "300"}}},
                      UpdateForm{0,
                                 0,
                                 {{"status", "100"},
                                  {"cpuloadavg", "1.50"},
                                  {"cpuloadavgpp", "0.75"},
                                  {"containers", "9"},
                                  {"tpl_syncstate", "300"}}}));

using StoreWritesRows = StoreWrites;

TEST_F(StoreWritesRows, InsertWritesTheRecordWithZeroCountersAndTheClock) {
  Sql("master", "alter table clusters auto_increment = 41;");
  Connect();
  const ClustRecord rec = NewRecord(7);
  EXPECT_EQ(qor::InsertClusterSql(kMasterAddr, 1700000000999, 0, rec), 0);
  EXPECT_EQ(rec.role_id, 55) << "the caller's record is left alone";
  // The database assigns the id; counters, template columns and the clock are the insert's own.
  EXPECT_EQ(
      Sql("master",
          "select id, hostname, ipaddress, clusterid, role, role_id, status, dbwrite_count, "
          "last_writemill, tpl_updatemill, tpl_syncmill, tpl_syncstate, cpuinfo, cpus, "
          "cpuphycores, cpucores, cpuprocs, cpuloadavg, cpuloadavgpp, containers, "
          "qortimemill, cpuutil, memutil, diskutil, qorver, updated_at > now() - interval 1 "
          "minute and created_at = updated_at from clusters;"),
      "41\tnew-host\t10.0.0.9\tnew-c\tmember\t102\t100\t0\t0\t0\t0\t0\tnew cpu\t2\t8\t16\t32\t"
      "1.50\t0.75\t9\t1700000000999\t0.00\t0.00\t0.00\t\t1\n");
  EXPECT_TRUE(Table("slave").empty());
  EXPECT_TRUE(Logs().empty());
}

// Insert and update choose their database by target; id and address play no part in it.
struct TargetCase {
  const char* op;
  int target;
  std::set<std::string> down;
  const char* reached;  // "master", "slave" or "" (no connection)
};

void PrintTo(const TargetCase& c, std::ostream* os) {
  *os << c.op << " target " << c.target << " with " << c.down.size() << " down";
}

class StoreWritesTargets : public StoreWrites, public ::testing::WithParamInterface<TargetCase> {};

TEST_P(StoreWritesTargets, ReachTheDatabaseOfTheirTarget) {
  const TargetCase& c = GetParam();
  const bool insert = std::string(c.op) == "insert";
  SeedBoth({{3, "old-host"}});
  Connect(c.down);
  Snapshot();
  ClustRecord rec = NewRecord(3);
  ClustRecord* records[] = {&rec};
  // The address names the master while the target may say otherwise.
  int rc = insert ? qor::InsertClusterSql(kMasterAddr, 1, c.target, rec)
                  : qor::UpdateClusterSql(kMasterAddr, records, 0, 0, 0, c.target);
  const std::string reached = c.reached;
  EXPECT_EQ(rc, reached.empty() ? 500 : 0);
  std::map<int, RowText> changed = insert ? std::map<int, RowText>{{4, {{"(new)", ""}}}}
                                          : std::map<int, RowText>{{3,
                                                                    {{"status", "100"},
                                                                     {"cpuloadavg", "1.50"},
                                                                     {"cpuloadavgpp", "0.75"},
                                                                     {"containers", "9"},
                                                                     {"tpl_syncstate", "300"}}}};
  std::map<int, RowText> none;
  EXPECT_EQ(MasterChanges(), reached == "master" ? changed : none);
  EXPECT_EQ(SlaveChanges(), reached == "slave" ? changed : none);
  std::vector<std::string> logs;
  if (reached.empty()) logs = {c.op + std::string("clustersql db connection error")};
  EXPECT_EQ(Logs(), logs);
}

INSTANTIATE_TEST_SUITE_P(Store, StoreWritesTargets,
                         ::testing::Values(TargetCase{"insert", 0, {}, "master"},
                                           TargetCase{"insert", 1, {}, "slave"},
                                           TargetCase{"insert", 0, {kMasterAddr}, "slave"},
                                           TargetCase{"insert", 1, {kSlaveAddr}, ""},
                                           TargetCase{"insert", 2, {}, "slave"},
                                           TargetCase{"update", 0, {}, "master"},
                                           TargetCase{"update", 1, {}, "slave"},
                                           TargetCase{"update", 0, {kMasterAddr}, "slave"},
                                           TargetCase{"update", 1, {kSlaveAddr}, ""},
                                           TargetCase{"update", 0, {kMasterAddr, kSlaveAddr}, ""},
                                           TargetCase{"update", 2, {}, "slave"}));

TEST_F(StoreWritesRows, SetStatusGoesToTheDatabaseOfTheAddress) {
  struct Case {
    const char* address;
    std::set<std::string> down;
    const char* reached;
  } cases[] = {
      {kMasterAddr, {}, "master"},
      {kSlaveAddr, {}, "slave"},
      {"10.0.0.1", {}, ""},
      {"", {}, ""},
      // A missing pool is not replaced by the other side's.
      {kMasterAddr, {kMasterAddr}, ""},
      {kSlaveAddr, {kSlaveAddr}, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.address) + " down " + std::to_string(c.down.size()));
    SeedBoth({{3, "a"}, {4, "b"}});
    qor::CloseConnectionPool();
    Connect(c.down);
    Snapshot();
    const std::string reached = c.reached;
    EXPECT_EQ(qor::SetStatusClusterSql(c.address, 4, 300), reached.empty() ? 500 : 0);
    std::map<int, RowText> changed = {{4, {{"status", "300"}}}}, none;
    EXPECT_EQ(MasterChanges(), reached == "master" ? changed : none);
    EXPECT_EQ(SlaveChanges(), reached == "slave" ? changed : none);
    std::vector<std::string> logs;
    if (reached.empty()) logs = {"setstatusclustersql db connection error"};
    EXPECT_EQ(Logs(), logs);
  }
}

// The writes by host name: all rows of the host, in the first open pool's database whatever
// address the caller names.
struct HostWrite {
  const char* name;
  std::function<int(const char* dbsvr, const char* host)> call;
  RowText changed;
  const char* connErr;
};

const HostWrite kHostWrites[] = {
    {"SetOldClusterSvrSql",
     qor::SetOldClusterSvrSql,
     {{"status", "300"}, {"last_writemill", "0"}},
     "setoldclustersvrsql db connection error"},
    {"SetTplOldClusterSvrSql",
     qor::SetTplOldClusterSvrSql,
     {{"tpl_syncstate", "300"}, {"tpl_syncmill", "0"}},
     "settploldclustersvrsql db connection error"},
    {"UpdateTplsyncSql",
     [](const char* dbsvr, const char* host) {
       return qor::UpdateTplsyncSql(dbsvr, host, 1700000000777, 100);
     },
     {{"tpl_syncstate", "100"}, {"tpl_syncmill", "1700000000777"}},
     "updatetplsyncsql db connection error"},
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
      SeedBoth({{3, "node-a"}, {4, "node-b"}, {5, "node-a"}});
      qor::CloseConnectionPool();
      Connect(c.down);
      Snapshot();
      const std::string reached = c.reached;
      EXPECT_EQ(w.call(c.address, "node-a"), reached.empty() ? 500 : 0);
      std::map<int, RowText> changed = {{3, w.changed}, {5, w.changed}}, none;
      EXPECT_EQ(MasterChanges(), reached == "master" ? changed : none);
      EXPECT_EQ(SlaveChanges(), reached == "slave" ? changed : none);
      std::vector<std::string> logs;
      if (reached.empty()) logs = {w.connErr};
      EXPECT_EQ(Logs(), logs);
    }
  }
}

// Quotes, backslashes and percent signs are parts of a host name, never of the statement.
TEST_F(StoreWritesRows, HostilePartsOfHostNamesAreTakenLiterally) {
  const char* const hostile = "o'b\\%";
  Sql("master", SeedRows({{3, "node-a"}, {4, "node-b"}}) +
                    "insert into clusters (id, hostname, updated_at) values (5, 'o\\'b\\\\%', '" +
                    kLongAgo + "');");
  Connect();
  for (const HostWrite& w : kHostWrites) {
    for (const char* host :
         {"node-a' or '1'='1", "x' or hostname like '%", "node-%", "%", "node_a", "node-a\\", "\\",
          "'", "o'b\\", "node-a'; delete from clusters; -- "}) {
      SCOPED_TRACE(std::string(w.name) + " " + host);
      Snapshot();
      EXPECT_EQ(w.call(kMasterAddr, host), 0);
      EXPECT_TRUE(MasterChanges().empty());
      EXPECT_TRUE(Logs().empty()) << "matching no row is no error";
    }
    SCOPED_TRACE(w.name);
    Sql("master",
        std::string("update clusters set status = 200, last_writemill = 1111, tpl_syncstate = 0, "
                    "tpl_syncmill = 3333, updated_at = '") +
            kLongAgo + "' where id = 5;");
    Snapshot();
    EXPECT_EQ(w.call(kMasterAddr, hostile), 0);
    EXPECT_EQ(MasterChanges(), (std::map<int, RowText>{{5, w.changed}}));
  }
}

TEST_F(StoreWritesRows, RemoveTakesItsSelectorFromTheFirstOpenPoolsTable) {
  const std::vector<std::pair<int, std::string>> rows = {
      {1, "mhost"},        {2, "shost"},      {3, "node-a"},    {4, "qordummyd1"},
      {5, "qordummyd-22"}, {6, "xqordummyd"}, {7, "qordummy"},  {8, "50%"},
      {9, "o\\'b\\\\"},    {10, "-ALL"},      {11, "qordummyd"}};
  const std::set<int> kAll = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  struct Case {
    const char* selector;
    std::set<int> removed;
  } cases[] = {
      {"-all", kAll},
      {"", kAll},
      {"-alldummy", {4, 5, 11}},
      {"node-a", {3}},
      {"50%", {8}},
      {"o'b\\", {9}},
      {"-ALL", {10}},
      {"%", {}},
      {"qordummyd%", {}},
      {"x' or '1'='1", {}},
      {"node-a' or hostname like '%", {}},
      {"nohost", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.selector);
    SeedBoth(rows);
    Connect();
    Snapshot();
    // The address names the slave; the master's database is the first open one.
    EXPECT_EQ(qor::RemoveClusterSvrsSql(kSlaveAddr, c.selector), 0);
    std::map<int, RowText> gone;
    for (int id : c.removed) gone[id]["(gone)"] = "";
    EXPECT_EQ(MasterChanges(), gone);
    EXPECT_TRUE(SlaveChanges().empty());
    EXPECT_TRUE(Logs().empty());
    qor::CloseConnectionPool();
  }
  SeedBoth(rows);
  Connect({kMasterAddr});
  EXPECT_EQ(qor::RemoveClusterSvrsSql(kMasterAddr, "-all"), 0);
  EXPECT_EQ(Table("master").size(), rows.size());
  EXPECT_TRUE(Table("slave").empty());

  qor::CloseConnectionPool();
  EXPECT_EQ(qor::RemoveClusterSvrsSql(kMasterAddr, "node-a"), 500);
  EXPECT_EQ(Logs(), std::vector<std::string>{"removeclustersvrssql db connection error"});
}

TEST_F(StoreWritesRows, RemoveRefusesAHostTooLongForItsWhereClause) {
  // Without pools a statement that reached the connection step would give 500.
  const std::string host(300, 'h');
  EXPECT_EQ(qor::RemoveClusterSvrsSql(kMasterAddr, host.c_str()), 501);
  EXPECT_EQ(Logs(), std::vector<std::string>{"removeclustersvrssql refused: value too long (" +
                                             host.substr(0, 64) + ")"});
}

// Member rows unchanged for more than clustsweep minutes by the database clock go.
class StoreWritesSweep : public StoreWrites {
 protected:
  static std::string Rows() {
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
    for (const char* side : {"master", "slave"}) Sql(side, "delete from clusters;" + Rows());
    qor::CloseConnectionPool();
    Connect(c.down);
    EXPECT_EQ(qor::SweepClustersql(kSlaveAddr), 0);
    const bool master = std::string(c.swept) == "master";
    EXPECT_EQ(Hosts("master"), master ? swept_ : all_);
    EXPECT_EQ(Hosts("slave"), master ? all_ : swept_);
    EXPECT_TRUE(Logs().empty());
  }
}

TEST_F(StoreWritesSweep, TheSlavesPoolStandsInForAMasterWhoseDatabaseStopped) {
  ThirdServer third;
  ASSERT_TRUE(third.started()) << "see " << QOR_TESTDB_DIR << "/third.log";
  qor::cnf.clustmaster = kThirdAddr;
  Sql("third", "delete from clusters;" + Rows());
  Sql("slave", Rows());
  Connect();
  ASSERT_NE(qor::mpool, nullptr);
  ASSERT_TRUE(third.Stop());
  EXPECT_EQ(qor::SweepClustersql(kThirdAddr), 0);
  EXPECT_EQ(Hosts("slave"), swept_);
  EXPECT_TRUE(Logs().empty());
}

TEST_F(StoreWritesSweep, AFailedSweepIsReportedAndTheProcessGoesOn) {
  Sql("master", Rows());
  // Without a pool.
  EXPECT_EQ(qor::SweepClustersql(kMasterAddr), 500);
  EXPECT_EQ(Logs(), std::vector<std::string>{"deleteclusterssql db connection error"});

  // With the master's table gone for a moment: the statement fails on a live connection, so
  // the slave's database is not tried.
  Sql("slave", Rows());
  Connect();
  Sql("master", "rename table clusters to clusters_away;");
  int rc = qor::SweepClustersql(kMasterAddr);
  Sql("master", "rename table clusters_away to clusters;");
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(Logs(), std::vector<std::string>{"deleteclusterssql db delete error"});
  EXPECT_EQ(Hosts("master"), all_);
  EXPECT_EQ(Hosts("slave"), all_);

  // The next pass sweeps.
  EXPECT_EQ(qor::SweepClustersql(kMasterAddr), 0);
  EXPECT_EQ(Hosts("master"), swept_);
}

}  // namespace
}  // namespace qortest
