// What the cycle benchmarks count around the daemon's cycle: the pipelines it starts (through a
// shell runner that still runs each for real) and the processes spawned (the pid counter).
#pragma once

#include <fstream>
#include <string>

#include "base/shell.h"

namespace qorbench {

class CountingShell : public qor::ShellRunner {
 public:
  bool Run(const char* command, size_t lineMax, int seconds, qor::LineSink sink,
           int* status) override {
    ++pipelines;
    return qor::RealShell().Run(command, lineMax, seconds, sink, status);
  }
  bool Start(const char* command, qor::BackgroundShell* started) override {
    ++pipelines;
    return qor::RealShell().Start(command, started);
  }
  long pipelines = 0;
};

// The most recent process id this pid namespace handed out (last field of /proc/loadavg).
inline long LastPid() {
  std::ifstream in("/proc/loadavg");
  std::string a, b, c, d;
  long pid = 0;
  in >> a >> b >> c >> d >> pid;
  return pid;
}

}  // namespace qorbench
