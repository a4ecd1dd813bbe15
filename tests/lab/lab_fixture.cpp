#include "lab/lab_fixture.h"

#include <regex.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "store/clust_record.h"

namespace qorlab {

namespace {

// The test's name, cut short: the lab's socket paths must stay within 107 characters.
std::string TestDir() {
  const ::testing::TestInfo* t = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string(t->name()).substr(0, 24);
  for (char& c : name) {
    if (c == '/') c = '_';
  }
  return std::string(QOR_LAB_TEST_DIR) + "/" + name;
}

}  // namespace

std::vector<ClusterRow> ReadRows(const Lab& lab, int db) {
  bool ok = false;
  std::string out = lab.Sql(db,
                            "select hostname, ipaddress, role, role_id, status, last_writemill, "
                            "unix_timestamp(updated_at), unix_timestamp(now()) from clusters "
                            "order by id;",
                            &ok);
  std::vector<ClusterRow> rows;
  if (!ok) {
    ADD_FAILURE() << "reading the clusters table of " << lab.Info(db).name << ": " << out;
    return rows;
  }
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) {
    std::istringstream l(line);
    ClusterRow r;
    std::getline(l, r.hostname, '\t');
    std::getline(l, r.ipaddress, '\t');
    std::getline(l, r.role, '\t');
    l >> r.role_id >> r.status >> r.last_writemill >> r.updated_at >> r.now;
    rows.push_back(r);
  }
  return rows;
}

ClusterRow RowOf(const Lab& lab, int db, const std::string& hostname) {
  for (const ClusterRow& r : ReadRows(lab, db)) {
    if (r.hostname == hostname) return r;
  }
  return ClusterRow{};
}

::testing::AssertionResult AllActive(const Lab& lab, int db) {
  std::vector<ClusterRow> rows = ReadRows(lab, db);
  std::ostringstream why;
  if (static_cast<int>(rows.size()) != lab.size()) {
    why << rows.size() << " rows instead of " << lab.size() << ";";
  }
  for (int i = 0; i < lab.size(); ++i) {
    const LabHost& h = lab.Info(i);
    int found = 0;
    for (const ClusterRow& r : rows) {
      if (r.hostname != h.name) continue;
      ++found;
      if (r.ipaddress != h.address || r.role != h.role || r.role_id != qor::RoleIdOf(h.role.c_str()) ||
          r.status != 100) {
        why << " " << h.name << " has " << r.ipaddress << " " << r.role << " " << r.role_id
            << " status " << r.status << ";";
      }
    }
    if (found != 1) why << " " << found << " rows of " << h.name << ";";
  }
  if (why.str().empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "database of " << lab.Info(db).name << ":" << why.str();
}

bool FullMatch(const std::string& text, const std::string& ere) {
  regex_t re;
  if (regcomp(&re, ("^(" + ere + ")$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) return false;
  bool ok = regexec(&re, text.c_str(), 0, nullptr, 0) == 0;
  regfree(&re);
  return ok;
}

bool Logged(Lab& lab, int i, const std::string& prefix) {
  for (const std::string& line : lab.Syslog(i)) {
    if (line.rfind(prefix, 0) == 0) return true;
  }
  return false;
}

bool Moves(const Lab& lab, int db, const std::string& hostname, int seconds) {
  int64_t at = RowOf(lab, db, hostname).updated_at;
  return WaitFor(seconds, [&] { return RowOf(lab, db, hostname).updated_at > at; });
}

LabCluster::LabCluster() : lab_(LabOptions{TestDir(), 4, true}) {}

void LabCluster::SetUp() {
  std::string err = lab_.Up();
  ASSERT_EQ(err, "") << "the lab did not come up";
}

void LabCluster::TearDown() {
  lab_.Down();
}

::testing::AssertionResult LabCluster::StartAndJoin(int seconds) {
  std::string err = lab_.StartDaemons();
  if (!err.empty()) return ::testing::AssertionFailure() << err;
  if (WaitFor(seconds, [&] { return AllActive(lab_, kMaster) && AllActive(lab_, kSlave); })) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure()
         << "not joined within " << seconds << " s: " << AllActive(lab_, kMaster).message() << " / "
         << AllActive(lab_, kSlave).message();
}

int Takeovers(const Lab& lab, int i) {
  std::vector<std::string> calls = lab.Calls(i);
  return static_cast<int>(std::count_if(calls.begin(), calls.end(), [](const std::string& c) {
    return c.find(" qordown.sh") != std::string::npos;
  }));
}

// Stops host i's daemon and starts it again with the pause after each cycle cut to a twentieth
// (fast_sleep.cpp): its slow work, due every 150 cycles, comes after about half a minute. The
// daemon is started from the binary the stopped one ran.
::testing::AssertionResult RestartFast(Lab& lab, int i) {
  std::string exe = lab.Shell(i, "readlink /proc/$(pgrep -x qorclustd)/exe").out;
  if (exe.empty() || lab.Run(i, {"-stop"}).status != 0) {
    return ::testing::AssertionFailure() << "no daemon to stop";
  }
  exe.pop_back();
  std::ifstream so(QOR_LAB_FAST_SLEEP, std::ios::binary);
  std::stringstream bytes;
  bytes << so.rdbuf();
  lab.Host(i).Write("qorbin/lab-fast-sleep.so", bytes.str());
  // A sanitizer's runtime wants to be loaded first; the preloaded library comes before it.
  RunResult r =
      lab.Host(i).Enter({"/usr/bin/env", "LD_PRELOAD=/var/www/html/qor/qorbin/lab-fast-sleep.so",
                         "ASAN_OPTIONS=verify_asan_link_order=0", exe, "-start_boot"},
                        RunOptions{});
  if (r.status == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "-start_boot: " << r.status << " " << r.out << r.err;
}

}  // namespace qorlab
