#include "observe/systemd_notify.h"

#include <gtest/gtest.h>

#include <string>

#include "config/qorconf.h"

namespace qor {
namespace {

TEST(SystemdStatus, OneLineOfRoleRowsCycleAndTakeover) {
  struct {
    DaemonStatus status;
    std::string line;
  } rows[] = {
      {{.role = kRoleMember, .servers = 4, .cycleMs = 40},
       "member: 4 servers in the table, cycle 0.04 s"},
      {{.role = kRoleSlave, .servers = 1, .cycleMs = 10050},
       "slave: 1 server in the table, cycle 10.05 s"},
      {{.role = kRoleMaster,
        .servers = 12,
        .cycleMs = 1234,
        .takeoverHost = "web3",
        .takeoverAddress = "10.0.0.13",
        .takeoverMs = 12999,
        .takeoversWaiting = 2},
       "master: 12 servers in the table, cycle 1.23 s, take-over of web3(10.0.0.13) running 12 s, "
       "2 more waiting"},
      {{.role = kRoleMember,
        .servers = 4,
        .cycleMs = 20,
        .slowWhat = "pull of qortemplates",
        .slowMs = 140500},
       "member: 4 servers in the table, cycle 0.02 s, slow work: pull of qortemplates running 140 "
       "s"},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(FormatDaemonStatus(r.status).c_str(), r.line);
  }
}

}  // namespace
}  // namespace qor
