// The lab comes up within a minute and goes away without a trace: no process, namespace, mount,
// link or directory of it is left on the machine.
#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

namespace fs = std::filesystem;

std::string RootOut(const std::string& command) {
  return RunProgram({"/bin/sh", "-c", command}, RunOptions{}).out;
}

std::vector<std::string> ProcDirs() {
  std::vector<std::string> pids;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator("/proc", ec)) {
    std::string name = e.path().filename();
    if (name.find_first_not_of("0123456789") == std::string::npos) pids.push_back(e.path());
  }
  return pids;
}

// Every namespace some process is in or holds open, as "net:[inode]" texts.
std::set<std::string> NamespacesInUse() {
  std::set<std::string> in;
  std::error_code ec;
  for (const std::string& p : ProcDirs()) {
    for (const char* kind : {"net", "mnt", "pid", "uts"}) {
      fs::path l = fs::read_symlink(p + "/ns/" + kind, ec);
      if (!ec) in.insert(l.string());
    }
    for (const auto& fd : fs::directory_iterator(p + "/fd", ec)) {
      fs::path l = fs::read_symlink(fd.path(), ec);
      if (!ec) in.insert(l.string());
    }
  }
  return in;
}

// Processes in one of the namespaces ns ("pid:[inode]" texts), with their command lines.
std::vector<std::string> ProcessesIn(const std::vector<std::string>& ns) {
  std::vector<std::string> found;
  std::error_code ec;
  for (const std::string& p : ProcDirs()) {
    fs::path pidns = fs::read_symlink(p + "/ns/pid", ec);
    if (ec || std::find(ns.begin(), ns.end(), pidns.string()) == ns.end()) continue;
    std::ifstream in(p + "/cmdline", std::ios::binary);
    std::string cmd((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (char& c : cmd) {
      if (c == '\0') c = ' ';
    }
    found.push_back(p + ": " + cmd);
  }
  return found;
}

std::string Text(const std::string& file) {
  std::ifstream in(file);
  std::stringstream all;
  all << in.rdbuf();
  return all.str();
}

double Seconds(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

TEST(LabTeardown, UpWithinAMinuteDownWithoutLeftovers) {
  const std::string dir = std::string(QOR_LAB_TEST_DIR) + "/Teardown";
  const std::string links = RootOut("ip -o link show | cut -d: -f2");
  const std::string netns = RootOut("ip netns list");
  const std::string mounts = Text("/proc/self/mountinfo");
  Lab lab(LabOptions{dir, 4, false});

  auto t0 = std::chrono::steady_clock::now();
  ASSERT_EQ(lab.Up(), "");
  EXPECT_LT(Seconds(t0), 60.0);
  ASSERT_EQ(lab.StartDaemons(), "");
  ASSERT_TRUE(WaitFor(10, [&] { return AllActive(lab, kMaster) && AllActive(lab, kSlave); }));

  // What there is to find while it runs: a net namespace for the bridge, four per host.
  std::vector<std::string> made = lab.Namespaces();
  ASSERT_EQ(made.size(), 1u + 4u * 4u);
  std::set<std::string> used = NamespacesInUse();
  for (const std::string& ns : made) EXPECT_TRUE(used.count(ns)) << ns;
  EXPECT_GE(ProcessesIn(made).size(), 4u + 3u + 4u)
      << "the holders, two database servers, an sshd and the daemons";
  std::vector<pid_t> holders = lab.Holders();
  ASSERT_EQ(holders.size(), 5u);
  EXPECT_NE(Text("/proc/" + std::to_string(holders[1]) + "/mountinfo")
                .find(std::string(" ") + kLabDirInHost + " "),
            std::string::npos);
  EXPECT_EQ(Text("/proc/self/mountinfo"), mounts) << "the hosts' mounts are made in the hosts";

  t0 = std::chrono::steady_clock::now();
  lab.Down();
  EXPECT_LT(Seconds(t0), 30.0);

  used = NamespacesInUse();
  for (const std::string& ns : made) EXPECT_FALSE(used.count(ns)) << ns << " is still in use";
  EXPECT_EQ(ProcessesIn(made), std::vector<std::string>{});
  for (pid_t pid : holders) EXPECT_FALSE(fs::exists("/proc/" + std::to_string(pid) + "/ns"));
  EXPECT_EQ(RootOut("ip -o link show | cut -d: -f2"), links);
  EXPECT_EQ(RootOut("ip netns list"), netns);
  EXPECT_EQ(Text("/proc/self/mountinfo"), mounts);
  EXPECT_FALSE(fs::exists(dir));
  // A second Down has nothing left to do.
  lab.Down();
}

// A directory the lab would empty must be its own: never a top-level one, never relative, and
// short enough for its sockets.
TEST(LabTeardown, RefusesDirectoriesItMustNotEmpty) {
  const char* dirs[] = {"", "lab", "/", "/tmp", "/tmp/", "/tmp/.", "/tmp/../tmp", "/tmp/x/../.."};
  for (const char* d : dirs) {
    Lab lab(LabOptions{d, 4, false});
    EXPECT_NE(lab.Up(), "") << d;
    EXPECT_FALSE(lab.up()) << d;
  }
  Lab longPath(LabOptions{"/tmp/qorlab-" + std::string(100, 'x'), 4, false});
  EXPECT_NE(longPath.Up(), "");
  EXPECT_TRUE(fs::exists("/tmp"));
}

}  // namespace
}  // namespace qorlab
