// The real binary's command words, one row each: exit status, what it prints, and what it leaves
// in the master's test database. Operators and other programs read these texts and statuses.
// The rows' times are given as the seconds the listing shows.
#include <gtest/gtest.h>

#include <ctime>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "lab/ns_host.h"
#include "support/store_env.h"

namespace qortest {
namespace {

const char* const kNodes =
    "insert into clusters (hostname, ipaddress, clusterid, role, role_id, status, last_writemill,"
    " tpl_syncstate, tpl_syncmill, cpuloadavgpp, updated_at) values "
    "('mhost', '127.0.0.1', 'c1', 'master', 100, 100, 5, 100, 7, 0.75, from_unixtime(1672628645)), "
    "('node-a', '10.0.0.5', 'c1', 'member', 102, 100, 5, 100, 7, 0.50, from_unixtime(1672628646));";
const char* const kUntouched = "mhost\t100\t5\t100\t7\nnode-a\t100\t5\t100\t7\n";
const char* const kMasterConf = "master";
const std::string kPrompt = "Are your sure [y/N] ? ";

std::string Usage() {
  std::ifstream in(std::string(QOR_TEST_DATA) + "/usage.golden");
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string Listing(bool full) {
  const std::string head =
      "[id] host ip clustid role stat lastwrt tplsyncstat tplupd tplsync loadavgpp containers "
      "updated" +
      std::string(full ? " cores cpu mem disk qorver\n" : "\n");
  const std::string more = full ? " 0 0.00 0.00 0.00 \n" : "\n";
  return "1.-- on master db ---------------------------------\n" + head +
         "[1] mhost 127.0.0.1 c1 master 100 5 100 0 7 0.00 0 1672628645" + more +
         "[2] node-a 10.0.0.5 c1 member 100 5 100 0 7 0.00 0 1672628646" + more +
         "2.-- on slave db ----------------------------------\n" + head;
}

// -lj's frame, each row shown as ROW(host): a row's columns are the store suite's to check, its
// age, against the clock, this one's.
const char* const kJsonListing =
    "{\"databases\":[\n{\"database\":\"master\",\"address\":\"127.0.0.1\",\"answers\":true,"
    "\"read\":true,\"rows\":[\nROW(mhost),\nROW(node-a)]},\n{\"database\":\"slave\","
    "\"address\":\"127.0.0.2\",\"answers\":true,\"read\":true,\"rows\":[]}]}\n";

std::string RowsChecked(std::string out) {
  const std::string host = "\"hostname\":\"", updated = "\"updated_at\":", age = "\"age_seconds\":";
  for (size_t at = out.find("{\"id\":"); at != std::string::npos; at = out.find("{\"id\":", at)) {
    const size_t end = out.find('}', at), h = out.find(host, at) + host.size();
    const size_t u = out.find(updated, at), a = out.find(age, at);
    if (end == std::string::npos || u > end || a > end) break;  // a renamed key: the text differs
    long late = time(nullptr) - std::stol(out.substr(u + updated.size())) -
                std::stol(out.substr(a + age.size()));
    const std::string name = out.substr(h, out.find('"', h) - h);
    out.replace(at, end + 1 - at, "ROW(" + name + (late >= 0 && late <= 5 ? ")" : " WRONG)"));
  }
  return out;
}

// The binary as a server has it, on a test host of its own (mount and pid namespaces, the
// platform directory and /dev/log its own) that shares this process's network, where the test
// databases are; another user's run goes through setpriv.
TEST(CliWords, EachWordAnswersAndChangesWhatItShould) {
  qorlab::NsHost box;
  ASSERT_TRUE(box.ok());
  box.Write(".env", "QOR_VERSION = '4.2.7'\n");
  const std::string usage = Usage();
  struct {
    const char* args;  // the command words, split at blanks
    const char* conf;  // the node's role, "" for a cluster that is not enabled
    int status;
    std::string out, input = "";
    int uid = 0;
    std::string rows = kUntouched;  // the master's database afterwards
  } cases[] = {
      {"", kMasterConf, 0, usage},
      {"-v", "", 0, "4.0.16\n"},
      {"-qorver", "", 0, "4.2.7\n"},
      {"-timesec", "", 1, ""},
      {"-nosuchword", kMasterConf, 0, usage},
      {"-count", kMasterConf, 0, "2\n"},
      {"-l", kMasterConf, 0, Listing(false)},
      {"-lf", kMasterConf, 0, Listing(true)},
      {"-lj", kMasterConf, 0, kJsonListing},
      {"-target", kMasterConf, 0, "Master: Cluster Target -> 10.0.0.5\n"},
      {"-target", "member", 0, "Can not get cluster target on member servers!\n"},
      {"-rm_from_master node-a", kMasterConf, 0, kPrompt, "n\n"},
      {"-rm_from_master node-a", kMasterConf, 0, kPrompt + "removing node-a from 127.0.0.1...OK\n",
       "y\n", 0, "mhost\t100\t5\t100\t7\n"},
      // The slave's words change the slave's database only.
      {"-rm_all_from_slave", kMasterConf, 0, kPrompt + "removing all from 127.0.0.2...OK\n", "y\n"},
      {"-set_old_on_master node-a", kMasterConf, 0, kPrompt + "set node-a old on 127.0.0.1...OK\n",
       "y\n", 0, "mhost\t100\t5\t100\t7\nnode-a\t300\t0\t100\t7\n"},
      {"-set_tplold_on_slave node-a", kMasterConf, 0,
       kPrompt + "set node-a tpl old on 127.0.0.2...OK\n", "y\n"},
      {"-clear", kMasterConf, 1, "_not standalone. cluster!\n", "y\n"},
      // The detector's view, read only: no row changes.
      {"-explain", kMasterConf, 0,
       "no observations of the daemon here (is it running?): silences from now\n"
       "judging from the master's database, 0 servers writing, 0 silent\n"
       "node-a(10.0.0.5) status 100, silent 0.0 s: nothing\n"},
      {"-explain", "member", 0, "this server is a member: it judges nobody\n"},
      {"-maintenance node-a on 30 kernel update", kMasterConf, 0,
       "maintenance of node-a on on 127.0.0.1...OK\nmaintenance of node-a on on 127.0.0.2...OK\n"},
      {"-maintenance node-a on 9999 x", kMasterConf, 1,
       "maintenance: minutes must be 1 to 480 (qor_clustmaintmax)\nusage: qorclustd -maintenance "
       "[host on minutes reason or host off]\n"},
      {"-stop", kMasterConf, 0, "Please sudo this!\n", "", 65534},
      {"-start_boot", kMasterConf, 1, "Please sudo this!\n", "", 65534},
  };
  for (const auto& c : cases) {
    const std::string what = std::string(c.args) + " " + c.conf;
    ResetTables();
    Sql("master", kNodes);
    // A member on lo would claim the master's address.
    box.Write(".qorconf", *c.conf ? TestClusterConf(c.conf, c.conf == kMasterConf ? "lo" : "0")
                                  : "qor_cluster=0\nqor_clustrole=master\nqor_netif=lo\n");
    std::vector<std::string> argv{"/usr/bin/setpriv", "--reuid=" + std::to_string(c.uid),
                                  "--regid=" + std::to_string(c.uid), "--clear-groups",
                                  qorlab::kInstalledQorclustd};
    std::istringstream words(c.args);
    for (std::string w; words >> w;) argv.push_back(w);
    RunResult r = box.Enter(argv, RunOptions{c.input, 0, 60});
    EXPECT_EQ(r.status, c.status) << what << r.err;
    EXPECT_EQ(RowsChecked(r.out), c.out) << what;
    EXPECT_EQ(Sql("master",
                  "select hostname, status, last_writemill, tpl_syncstate, tpl_syncmill from "
                  "clusters order by hostname;"),
              c.rows)
        << what;
    // Outside an enabled cluster every word but the version words stops with one notice.
    if (!*c.conf && c.status == 1) {
      ASSERT_EQ(r.syslog.size(), 1u) << what;
      EXPECT_EQ(r.syslog[0], "stopped because cluster not enabled or invalid config!");
    }
  }
  ResetTables();
}

}  // namespace
}  // namespace qortest
