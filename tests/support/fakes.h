// Stand-ins shared by the unit and store tests: a shell runner that records what it is asked to
// run, and a file of a test's own.
#pragma once

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "base/shell.h"

namespace qortest {

// Installed for its lifetime: records every command, which prints nothing; a command started
// beside the caller ends at once with status 0. A command that real returns true for runs for real
// instead, as real leaves it.
class FakeShell : public qor::ShellRunner {
 public:
  FakeShell() { qor::SetShellRunner(this); }
  ~FakeShell() override { qor::SetShellRunner(nullptr); }
  bool Run(const char* command, size_t lineMax, int seconds, qor::LineSink sink,
           int* status) override;
  bool Start(const char* command, qor::BackgroundShell* started) override;

  std::function<bool(std::string& command)> real;
  std::vector<std::string> commands;
  std::vector<int> bounds;  // the seconds each command was given
};

// Commands that end when the test lets them: each prints a line, as scripts do, reads a line of
// the test's pipe and ends with it as its exit status; past 10 s it ends by itself (124). The
// pipe closes with the object, which lets every holder go.
struct HeldCommand {
  HeldCommand();
  HeldCommand(const HeldCommand&) = delete;
  ~HeldCommand();
  // The next holder to read ends with status.
  void Release(int status);

  int fds[2] = {-1, -1};
  std::string command;
};

// A file of one test's own under /tmp, empty at first and removed when the test ends.
struct TempFile {
  TempFile();
  TempFile(const TempFile&) = delete;
  ~TempFile() { std::remove(path.c_str()); }
  // Replaces what the file holds with content, NULs included.
  void Write(const std::string& content) const { std::ofstream(path, std::ios::binary) << content; }
  std::string path = "/tmp/qortest.XXXXXX";
};

}  // namespace qortest
