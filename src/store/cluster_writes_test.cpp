#include "store/cluster_writes.h"

#include <gtest/gtest.h>

#include <string>

#include "config/qorconf.h"
#include "config/qorver.h"
#include "metrics/utilisation.h"
#include "support/fakes.h"

namespace qor {
namespace {

using qortest::SampleRecord;

class StoreStatements : public ::testing::Test {
 protected:
  void SetUp() override {
    CpuUtil = 0.25;
    MemUtil = 0.5;
    DiskUtil = 0.125;
    QorVersion = "4.1.0";
    cnf.cldbname = "qor";
  }
};

TEST_F(StoreStatements, UpdateFormsAreTheTemplatesFilledFromTheRecord) {
  struct Case {
    int withlastwrite, full;
    const char* sql;
  } cases[] = {
      {1, 1,
       "update clusters set updated_at=now(), hostname='node-1', ipaddress='10.0.0.5', "
       "clusterid='c1', role='member', role_id='55', status='100', "
       "last_writemill='1700000000123', cpus='2', cpuphycores='8', cpucores='16', "
       "cpuprocs='32', cpuloadavg='1.24', cpuloadavgpp='0.07', containers='9',cpuutil='0.25',"
       "memutil='0.50',diskutil='0.12',tpl_updatemill='1700000000456',  "
       "tpl_syncmill='1700000000789', tpl_syncstate='300', qorver='4.1.0' where id='12';"},
      {0, 1,
       "update clusters set updated_at=now(), hostname='node-1', ipaddress='10.0.0.5', "
       "clusterid='c1', role='member', role_id='55', status='100', cpus='2', "
       "cpuphycores='8', cpucores='16', cpuprocs='32', cpuloadavg='1.24', "
       "cpuloadavgpp='0.07', containers='9',cpuutil='0.25',memutil='0.50',diskutil='0.12',"
       "tpl_updatemill='1700000000456',  tpl_syncmill='1700000000789', tpl_syncstate='300', "
       "qorver='4.1.0' where id='12';"},
      {1, 0,
       "update clusters set updated_at=now(), status='100', last_writemill='1700000000123', "
       "cpuloadavg='1.24', cpuloadavgpp='0.07', containers='9',tpl_updatemill='1700000000456',"
       "  tpl_syncmill='1700000000789', tpl_syncstate='300' where id='12';"},
      {0, 0,
       "update clusters set updated_at=now(), status='100', cpuloadavg='1.24', "
       "cpuloadavgpp='0.07', containers='9',tpl_syncstate='300' where id='12';"},
      // Only 1 selects a form: any other flag value is "not 1".
      {2, 2,
       "update clusters set updated_at=now(), status='100', cpuloadavg='1.24', "
       "cpuloadavgpp='0.07', containers='9',tpl_syncstate='300' where id='12';"},
  };
  for (const Case& c : cases) {
    SqlText sql;
    ASSERT_TRUE(UpdateStatement(sql, SampleRecord(), c.withlastwrite, c.full));
    EXPECT_EQ(sql.view(), c.sql) << c.withlastwrite << c.full;
  }
}

TEST_F(StoreStatements, InsertDerivesRoleIdAndQuotesTexts) {
  ClustRecord r = SampleRecord();
  r.role = "Master";  // wrong case: role_id 0
  r.hostname = "o'host";
  SqlText sql;
  ASSERT_TRUE(InsertStatement(sql, r, 1700000009999));
  EXPECT_EQ(sql.view(),
            "insert into clusters (hostname,ipaddress,clusterid,role,role_id,status,"
            "dbwrite_count,last_writemill,cpuinfo,cpus,cpuphycores,cpucores,cpuprocs,cpuloadavg,"
            "cpuloadavgpp,containers,tpl_updatemill,tpl_syncmill,tpl_syncstate,created_at,"
            "updated_at,qortimemill) values ('o''host','10.0.0.5','c1','Master','0','100',"
            "'0','0','Xeon 2.4','2','8','16','32','1.24','0.07','9','0','0','0',now(),now(),"
            "'1700000009999');");
}

TEST_F(StoreStatements, RemoveAndSweepWhereClauses) {
  struct Case {
    const char* selector;
    const char* sql;
  } cases[] = {
      {"-all", "delete from qor.clusters  ;"},
      {"", "delete from qor.clusters ;"},
      {"-alldummy", "delete from qor.clusters where hostname like 'qordummyd%';"},
      {"node-3", "delete from qor.clusters where hostname = 'node-3';"},
      {"x' or '1'='1", "delete from qor.clusters where hostname = 'x'' or ''1''=''1';"},
  };
  for (const Case& c : cases) {
    SqlText sql;
    ASSERT_TRUE(RemoveStatement(sql, c.selector)) << c.selector;
    EXPECT_EQ(sql.view(), c.sql);
  }
  SqlText sql;
  EXPECT_TRUE(RemoveStatement(sql, std::string(108, 'h').c_str()));
  EXPECT_FALSE(RemoveStatement(sql, std::string(109, 'h').c_str())) << "refused, never cut";
  EXPECT_FALSE(RemoveStatement(sql, std::string(300, 'h').c_str()));
  EXPECT_FALSE(RemoveStatement(sql, "node-a\\"))
      << "a backslash means one thing or another by sql_mode";
  cnf.cldbname = "qor;drop";
  EXPECT_FALSE(RemoveStatement(sql, "-all")) << "a database name is not a place for SQL";
  cnf.cldbname = "qor";

  ASSERT_TRUE(SweepStatement(sql, 30));
  EXPECT_EQ(sql.view(),
            "delete from clusters where role!='master' and role!='slave' and updated_at < "
            "current_timestamp + interval -30 minute");
}

}  // namespace
}  // namespace qor
