#include "store/cluster_query.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "base/clock.h"

namespace qor {
namespace {

const std::string kHead =
    "select id,hostname,ipaddress,clusterid,role,role_id,status,dbwrite_count,last_writemill,"
    "tpl_updatemill,tpl_syncmill,tpl_syncstate,cpuinfo,cpus,cpuphycores,cpucores,cpuprocs,"
    "cpuloadavg,cpuloadavgpp,containers,updated_at,qortimemill,cpuutil,memutil,diskutil,qorver "
    "from clusters ";

TEST(StoreSelect, EverySelectorGivesItsStatementText) {
  struct Case {
    const char* cond;
    const char* tail;
  } cases[] = {
      {"-all", "  order by role_id, hostname;"},
      {"", " order by role_id, hostname;"},
      {"-active", "where status = '100' order by role_id, hostname;"},
      {"-active_all", "where status = '100' order by role_id, hostname;"},
      {"-inactive", "where status = '200' order by role_id, hostname;"},
      {"-not_master", "where role != 'master' order by role_id, hostname;"},
      {"-not_slave", "where role != 'slave' order by role_id, hostname;"},
      {"-master_slave", "where role != 'member' order by role;"},
      {"-active_master_slave", "where status =  '100' and role != 'member' order by role;"},
      {"-active_all_master_slave", "where status =  '100' and role != 'member' order by role;"},
      {"-master", "where role = 'master' order by role_id, hostname;"},
      {"-slave", "where role = 'slave' order by role_id, hostname;"},
      {"-member", "where role = 'member' order by role_id, hostname;"},
      {"-target", "where status = '100' and cpuloadavgpp < '1000'  order by cpuloadavgpp limit 1;"},
      {"like_node%",
       "where hostname like 'node%' or ipaddress like 'node%' order by role_id, hostname;"},
      {"like_", "where hostname like '' or ipaddress like '' order by role_id, hostname;"},
      {"node-7", "where hostname = 'node-7' order by role_id, hostname;"},
      {"-Master", "where hostname = '-Master' order by role_id, hostname;"},
      {"o'brien", "where hostname = 'o''brien' order by role_id, hostname;"},
      {"like_a'%",
       "where hostname like 'a''%' or ipaddress like 'a''%' order by role_id, hostname;"},
  };
  for (const Case& c : cases) {
    SqlText sql;
    ASSERT_TRUE(BuildClusterSelect(sql, c.cond)) << c.cond;
    EXPECT_EQ(sql.view(), kHead + c.tail) << c.cond;
  }
}

TEST(StoreSelect, HostNamesThatCannotBePlacedAreRefused) {
  // "where hostname like '%s' or ipaddress like '%s'" holds the pattern twice in 127 characters.
  SqlText sql;
  EXPECT_TRUE(BuildClusterSelect(sql, ("like_" + std::string(42, 'p')).c_str()));
  EXPECT_FALSE(BuildClusterSelect(sql, ("like_" + std::string(43, 'p')).c_str()));
  EXPECT_TRUE(BuildClusterSelect(sql, std::string(108, 'h').c_str()));
  EXPECT_FALSE(BuildClusterSelect(sql, std::string(109, 'h').c_str()));
  // Escaping counts against the room: 54 quotes become 108 characters, 55 do not fit.
  EXPECT_TRUE(BuildClusterSelect(sql, std::string(54, '\'').c_str()));
  EXPECT_FALSE(BuildClusterSelect(sql, std::string(55, '\'').c_str()));
  EXPECT_FALSE(BuildClusterSelect(sql, ("like_" + std::string(300, 'p')).c_str()));
  EXPECT_FALSE(BuildClusterSelect(sql, "o\\brien"));
  EXPECT_FALSE(BuildClusterSelect(sql, "like_a\\%"));
}

TEST(StoreSelect, UpdatedAtIsLocalTimeWithoutDaylightSaving) {
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  // Summer time is in force in July, but the stored text is read as standard time (UTC+1).
  EXPECT_EQ(ParseUpdatedAt("2026-07-01 12:00:00"), 1782903600);
  EXPECT_EQ(ParseUpdatedAt("2026-01-01 12:00:00"), 1767265200);
  EXPECT_EQ(ParseUpdatedAt("garbage"), 0);
  setenv("TZ", "UTC", 1);
  tzset();
}

TEST(StoreSelect, StrextCopiesAWindowOrRefuses) {
  struct Case {
    const char* src;
    int start, len;
    int rc;
    const char* out;
  } cases[] = {
      {"like_node%", 5, 10, 0, "node%"}, {"like_", 5, 5, 0, ""},      {"abcdef", 0, 3, 0, "abc"},
      {"abcdef", 4, 6, 0, "ef"},         {"abcdef", 6, 3, 0, ""},     {"abcdef", 9, 3, 0, ""},
      {"abcdef", 0, 0, 0, ""},           {"abcdef", 2, 7, 1, "keep"}, {"abcdef", -1, 2, 1, "keep"},
      {"abcdef", 2, -1, 1, "keep"},
  };
  for (const Case& c : cases) {
    char out[16] = "keep";
    EXPECT_EQ(strext(out, sizeof out, c.src, c.start, c.len), c.rc) << c.src << c.start << c.len;
    EXPECT_STREQ(out, c.out) << c.src << c.start << c.len;
  }
}

}  // namespace
}  // namespace qor
