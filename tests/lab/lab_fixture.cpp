#include "lab/lab_fixture.h"

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

LabCluster::LabCluster(int hosts, const std::string& tz)
    : lab_(LabOptions{.dir = TestDir(), .hosts = hosts, .keep_logs = true, .tz = tz}) {}

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

}  // namespace qorlab
