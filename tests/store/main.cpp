// The store suite runs in a private mount namespace of its own whose /dev/log is a catcher, so
// that tests can assert what the store logs.
#include <gtest/gtest.h>

#include <cstdio>

#include "lab/syslog_catcher.h"
#include "lab/temp_dir.h"
#include "support/store_env.h"

namespace qortest {
SyslogCatcher* g_syslog = nullptr;
}

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  qortest::TempDir dir;
  qortest::SyslogCatcher catcher(dir.path());
  std::string err = catcher.ok() ? qorlab::IsolateDevLog(dir.path(), catcher.path()) : "no socket";
  if (!err.empty()) {
    std::fprintf(stderr, "store tests: cannot isolate /dev/log: %s\n", err.c_str());
    return 1;
  }
  // The code under test blocks in syslog once a few unread lines queue up.
  catcher.StartDraining();
  qortest::g_syslog = &catcher;
  return RUN_ALL_TESTS();
}
