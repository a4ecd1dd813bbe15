#include "lab/lab_fixture.h"

#include <filesystem>

namespace qorlab {

namespace {

// The test's name, cut short: the lab's socket paths must stay within 107 characters.
std::string TestDir() {
  const ::testing::TestInfo* t = ::testing::UnitTest::GetInstance()->current_test_info();
  return std::string(QOR_LAB_TEST_DIR) + "/" + std::string(t->name()).substr(0, 24);
}

}  // namespace

::testing::AssertionResult AllActive(const Lab& lab, int db) {
  std::string why = NotAllActive(lab, db);
  if (why.empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << why;
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

// Stops host i's daemon and starts it again with the pause after each cycle cut to a twentieth
// (fast_sleep.cpp): its slow work, due every 150 cycles, comes after about half a minute. The
// daemon is started from the binary the stopped one ran.
::testing::AssertionResult RestartFast(Lab& lab, int i) {
  std::string exe = lab.Shell(i, "readlink /proc/$(pgrep -x qorclustd)/exe").out;
  if (exe.empty() || lab.Run(i, {"-stop"}).status != 0) {
    return ::testing::AssertionFailure() << "no daemon to stop";
  }
  exe.pop_back();
  std::filesystem::copy_file(QOR_LAB_FAST_SLEEP,
                             lab.Host(i).dir() + "/qor/qorbin/lab-fast-sleep.so",
                             std::filesystem::copy_options::overwrite_existing);
  // A sanitizer's runtime wants to be loaded first; the preloaded library comes before it.
  RunResult r =
      lab.Host(i).Enter({"/usr/bin/env", "LD_PRELOAD=/var/www/html/qor/qorbin/lab-fast-sleep.so",
                         "ASAN_OPTIONS=verify_asan_link_order=0", exe, "-start_boot"},
                        RunOptions{});
  if (r.status == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "-start_boot: " << r.status << " " << r.out << r.err;
}

}  // namespace qorlab
