#include "support/fakes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace qortest {

bool FakeShell::Run(const char* command, size_t lineMax, int seconds, qor::LineSink sink,
                    int* status) {
  commands.push_back(command);
  bounds.push_back(seconds);
  std::string run = command;
  if (real && real(run)) return qor::RealShell().Run(run.c_str(), lineMax, seconds, sink, status);
  if (status != nullptr) *status = 0;
  return true;
}

bool FakeShell::Start(const char* command, qor::BackgroundShell* started) {
  commands.push_back(command);
  std::string run = command;
  if (!real || !real(run)) run = "true";
  return qor::RealShell().Start(run.c_str(), started);
}

TempFile::TempFile() {
  // A test without a file of its own would write into a shared place: it stops here instead.
  int fd = mkstemp(path.data());
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "mkstemp " + path);
  close(fd);
}

HeldCommand::HeldCommand() {
  // Only the read end passes to the commands: one holding the write end would never see its end.
  if (pipe2(fds, O_CLOEXEC) == 0) fcntl(fds[0], F_SETFD, 0);
  command = "echo held; timeout 10 sh -c 'read s; exit $s' <&" + std::to_string(fds[0]);
}

HeldCommand::~HeldCommand() {
  close(fds[0]);
  close(fds[1]);
}

void HeldCommand::Release(int status) {
  std::string line = std::to_string(status) + "\n";
  EXPECT_EQ(write(fds[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
}

}  // namespace qortest
