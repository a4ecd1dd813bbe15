// The writes against the two real databases: which database each one reaches and which columns
// of which rows it changes, of the clusters table and of the containers table.
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "config/qorconf.h"
#include "config/qorver.h"
#include "housekeeping/container_rows.h"
#include "metrics/utilisation.h"
#include "store/cluster_writes.h"
#include "store/pools.h"
#include "store_fixture.h"
#include "support/fakes.h"

namespace qortest {
namespace {

// The columns the writes set, of every row in id order.
constexpr const char* kCols =
    "select hostname, status, last_writemill, tpl_syncmill, tpl_syncstate, cpus, cpuloadavg, "
    "cpuloadavgpp, containers, cpuutil, qorver, updated_at > now() - interval 1 minute "
    "from clusters order by id;";

class StoreWrites : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    qor::cnf.cldbname = "qor";
  }
  // Rows with ids 3, 4, ... of these host names in both databases, stamped long ago, each
  // column a value no write writes; pools built while the addresses in down do not answer.
  void Seed(const std::vector<std::string>& hosts, const std::set<std::string>& down = {}) {
    std::string sql =
        "insert into clusters (id, hostname, status, last_writemill, tpl_syncmill, "
        "cpus, cpuloadavg, cpuloadavgpp, containers, cpuutil, qorver, updated_at) "
        "values ";
    for (size_t i = 0; i < hosts.size(); ++i) {
      std::string host;
      for (char c : hosts[i]) host += c == '\'' ? "''" : std::string(1, c);
      sql += std::string(i ? ", " : "") + "(" + std::to_string(i + 3) + ", '" + host +
             "', 200, 1111, 3333, 1, 0.50, 0.25, 6, 0.10, '1.0', '2001-02-03 04:05:06')";
    }
    for (const char* side : {"master", "slave"}) Sql(side, "delete from clusters; " + sql + ";");
    qor::CloseConnectionPool();
    Connect(down);
  }
};

std::string Seeded(const std::string& host) {
  return host + "\t200\t1111\t3333\t0\t1\t0.50\t0.25\t6\t0.10\t1.0\t0\n";
}

// Only the columns of the form change, of the row with the record's id.
TEST_F(StoreWrites, UpdateFormsChangeTheirColumns) {
  struct {
    int withlastwrite;
    qor::RowForm form;
    std::string row;
  } cases[] = {
      {1, qor::RowForm::kFull,
       "node-1\t100\t1700000000123\t1700000000789\t300\t2\t1.24\t0.07\t9\t0.61\t4.2.0\t1\n"},
      {0, qor::RowForm::kFull,
       "node-1\t100\t1111\t1700000000789\t300\t2\t1.24\t0.07\t9\t0.61\t4.2.0\t1\n"},
      {1, qor::RowForm::kShort,
       "old\t100\t1700000000123\t1700000000789\t300\t1\t1.24\t0.07\t9\t0.10\t1.0\t1\n"},
      {0, qor::RowForm::kShort, "old\t100\t1111\t3333\t300\t1\t1.24\t0.07\t9\t0.10\t1.0\t1\n"}};
  for (const auto& c : cases) {
    Seed({"old", "other"});
    // Each written column a value of its own; 1.236 rounds up in "%0.2f", 0.075 (just below in
    // binary) down.
    qor::ClustRecord rec{.id = 3,
                         .hostname = "node-1",
                         .role_id = 55,
                         .status = 100,
                         .last_writemill = 1700000000123,
                         .tpl_syncmill = 1700000000789,
                         .tpl_syncstate = 300,
                         .cpus = 2,
                         .cpuphycores = 8,
                         .cpucores = 16,
                         .cpuloadavg = 1.236,
                         .cpuloadavgpp = 0.075,
                         .containers = 9,
                         .cpuutil = 0.61,
                         .qorver = "4.2.0"};
    qor::OwnRowWrites writes[qor::kDbCount];
    EXPECT_EQ(qor::UpdateClusterSql(qor::Db::kMaster, rec, c.withlastwrite, c.form, writes), 0);
    EXPECT_EQ(Sql("master", kCols), c.row + Seeded("other"))
        << c.withlastwrite << static_cast<int>(c.form);
  }
}

// The writes by host name change every row of the host, quotes and percent signs in its name
// taken literally.
struct HostWrite {
  std::function<int(qor::Db db, const char* host)> call;
  std::string row;  // a row of the host afterwards; empty: removed
};
const HostWrite kHostWrites[] = {
    {qor::SetOldClusterSvrSql, "o'b%\t300\t0\t3333\t0\t1\t0.50\t0.25\t6\t0.10\t1.0\t1\n"},
    {qor::SetTplOldClusterSvrSql, "o'b%\t200\t1111\t0\t300\t1\t0.50\t0.25\t6\t0.10\t1.0\t1\n"},
    {[](qor::Db db, const char* host) {
       return qor::UpdateTplsyncSql(db, host, 1700000000777, 100);
     },
     "o'b%\t200\t1111\t1700000000777\t100\t1\t0.50\t0.25\t6\t0.10\t1.0\t1\n"},
    {qor::RemoveClusterSvrsSql, ""},
};

// Every write reaches the database it names and no other; where that one does not answer it
// fails (500) and neither database changes.
TEST_F(StoreWrites, WritesReachTheDatabaseTheyName) {
  using qor::Db;
  qor::cnf.clustsweep = 30;
  const std::string before = Seeded("o'b%") + Seeded("node-b") + Seeded("o'b%");
  // Each write, and the named database's rows after it.
  std::vector<std::pair<std::function<int(Db)>, std::string>> writes = {
      {[](Db db) { return qor::SetStatusClusterSql(db, 3, 100); },
       "o'b%\t100\t1111\t3333\t0\t1\t0.50\t0.25\t6\t0.10\t1.0\t1\n" + Seeded("node-b") +
           Seeded("o'b%")},
      {qor::SweepClustersql, ""}};
  for (const HostWrite& w : kHostWrites) {
    writes.emplace_back([&w](Db db) { return w.call(db, "o'b%"); },
                        w.row + Seeded("node-b") + w.row);
  }
  struct {
    Db named;
    std::set<std::string> down;
    const char* changed;  // the database whose rows change, "" none
  } cases[] = {{Db::kMaster, {}, "master"},
               {Db::kSlave, {}, "slave"},
               {Db::kMaster, {kMasterAddr}, ""},
               {Db::kSlave, {kSlaveAddr}, ""}};
  for (const auto& [call, after] : writes) {
    for (const auto& c : cases) {
      Seed({"o'b%", "node-b", "o'b%"}, c.down);
      EXPECT_EQ(call(c.named), *c.changed ? 0 : 500) << after;
      for (const char* side : {"master", "slave"}) {
        EXPECT_EQ(Sql(side, kCols), side == std::string(c.changed) ? after : before)
            << after << side << " reached, named " << (c.named == Db::kMaster ? "master" : "slave");
      }
    }
  }
}

// Quotes and percent signs are parts of a host name, never of the statement, in either sql_mode:
// none of these names changes a row; a backslash, which means one thing or another by mode, is
// refused.
TEST_F(StoreWrites, HostilePartsOfHostNamesAreTakenLiterally) {
  ForEachSqlMode([&] {
    for (const HostWrite& w : kHostWrites) {
      Seed({"node-a", "o'b%"});
      for (const char* host : {"node-a' or '1'='1", "x' or 1=1 -- ", "node-%", "'",
                               "node-a'; delete from clusters; -- ", "x\\' or 1=1 -- "}) {
        const bool refused = std::string(host).find('\\') != std::string::npos;
        EXPECT_EQ(w.call(qor::Db::kMaster, host), refused ? 501 : 0) << host;
        EXPECT_EQ(Sql("master", kCols), Seeded("node-a") + Seeded("o'b%")) << host;
      }
    }
  });
}

// Of the remove selectors, "-all" is checked through the binary's -rm_all words and a host name
// above.
TEST_F(StoreWrites, AllDummyRemovesTheDummyServersOnly) {
  Seed({"mhost", "qordummyd1", "qordummyd-22", "xqordummyd", "qordummy"});
  EXPECT_EQ(qor::RemoveClusterSvrsSql(qor::Db::kMaster, "-alldummy"), 0);
  EXPECT_EQ(Sql("master", "select group_concat(hostname order by id separator ' ') from clusters;"),
            "mhost xqordummyd qordummy\n");
}

// The container-row cleaning: which rows are deleted or released, on which database, and an unset
// address that is neither pinged nor cleaned.
class StoreContainerRows : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    for (const char* side : {"master", "slave"}) {
      // Ages by the database's clock; '_' is a wildcard, so lumobrX is released too.
      Sql(side,
          "insert into containers (containerid, containername, username, hostname, updated_at) "
          "values ('', 'web', 'u', 'h', now()), ('c1', 'web', 'u', 'h', now()), "
          "('c2', 'lumobr_1', 'u', 'h', now() - interval 6 minute), "
          "('c3', 'lumodt_1', 'u', 'h', now() - interval 6 minute), "
          "('c4', 'lumobrX', 'u', 'h', now() - interval 6 minute), "
          "('c5', 'lumobr_2', 'u', 'h', now() - interval 4 minute), "
          "('c6', 'web_1', 'u', 'h', now() - interval 6 minute);");
    }
  }
  std::string Kept(const std::string& side) {
    return Sql(side,
               "select concat(ifnull(containerid, 'NULL'), ':', ifnull(containername, 'NULL'), "
               "':', ifnull(username, 'NULL')) from containers order by id;");
  }
  const std::string untouched =
      ":web:u\nc1:web:u\nc2:lumobr_1:u\nc3:lumodt_1:u\nc4:lumobrX:u\n"
      "c5:lumobr_2:u\nc6:web_1:u\n";
};

TEST_F(StoreContainerRows, NullRowsGoOnTheDatabaseTheAddressNames) {
  Connect();
  const std::string cleaned = untouched.substr(std::string(":web:u\n").size());
  // The housekeeping cleans both databases, each through its own address (with the slave's unset,
  // its database keeps its row); an unset slave address is neither pinged nor cleaned.
  for (const char* slave : {kSlaveAddr, "0"}) {
    qor::cnf.clustslave.set(slave);
    Sql("slave", "insert into containers (containerid) values ('');");
    seam.commands.clear();
    EXPECT_EQ(qor::CheckAllRsvContainers(), 0);
    EXPECT_EQ(Kept("master"), cleaned);
    EXPECT_EQ(Sql("slave", "select count(*) from containers where containerid='';"),
              *slave == '0' ? "1\n" : "0\n");
  }
  EXPECT_EQ(Pinged(seam.commands), std::vector<std::string>{kMasterAddr});
  EXPECT_TRUE(Logs().empty());
}

TEST_F(StoreContainerRows, StaleBrowserAndDesktopRowsAreReleasedOnTheTargetsDatabase) {
  const std::string released =
      ":web:u\nc1:web:u\nNULL:NULL:NULL\nNULL:NULL:NULL\nNULL:NULL:NULL\n"
      "c5:lumobr_2:u\nc6:web_1:u\n";
  Connect();
  EXPECT_EQ(qor::DeleteLumoBRSql(qor::Db::kSlave), 0);
  EXPECT_EQ(Kept("slave"), released);
  EXPECT_EQ(Kept("master"), untouched);
  EXPECT_EQ(qor::DeleteLumoBRSql(qor::Db::kMaster), 0);
  EXPECT_EQ(Kept("master"), released);
  EXPECT_TRUE(Logs().empty());
}

}  // namespace
}  // namespace qortest
