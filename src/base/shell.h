// The shell runner: the one place that starts shell pipelines (/bin/sh -c, read like popen).
// Output is read to the end line by line and the pipeline is waited for; its exit status is not
// examined. Every pipeline has a bound: one still running after its seconds is killed with its
// whole process group, so no command can hold the daemon's cycle for ever.
// Tests swap the runner (SetShellRunner) to make an address "not answer" or to point a pipeline at
// a sample file, while everything else stays real.
#pragma once

#include <cstddef>

namespace qor {

// Longest line buffer any caller asks for (the free output is read in lines of 8191 characters).
constexpr size_t kShellLineMax = 8192;
// Bound of a pipeline that names none: far above any status or measuring command.
constexpr int kShellSeconds = 60;

// Called for each piece of output read with a buffer of lineMax bytes (fgets semantics: a line
// longer than lineMax - 1 arrives in pieces). The line keeps its newline.
struct LineSink {
  void* ctx;
  void (*fn)(void* ctx, char* line);
  void operator()(char* line) const { fn(ctx, line); }
};

class ShellRunner {
 public:
  virtual ~ShellRunner() = default;
  // Returns false when the pipeline could not be started; then no line was delivered. A pipeline
  // still running after seconds is killed (logged); what it printed until then was delivered.
  virtual bool Run(const char* command, size_t lineMax, int seconds, LineSink sink) = 0;
};

// The runner in use: the real one unless a test installed another.
ShellRunner& CurrentShell();
// nullptr puts the real runner back.
void SetShellRunner(ShellRunner* runner);
// The real runner itself, for runners that wrap it.
ShellRunner& PopenShell();

// Runs command through the current runner and calls f(char* line) for every line read.
template <class F>
bool RunShell(const char* command, size_t lineMax, F&& f, int seconds = kShellSeconds) {
  LineSink sink{&f, [](void* p, char* line) { (*static_cast<decltype(&f)>(p))(line); }};
  return CurrentShell().Run(command, lineMax, seconds, sink);
}

// True when value may stand on a command line unquoted: non-empty, not beginning with '-', and
// made only of letters, digits, '.', '-', '_' and ':' (addresses and host names).
bool IsShellSafeWord(const char* value);

// Removes the last character of line (the newline a line read ends with), as the program always
// did before parsing a line; an empty line stays empty.
void ChopLast(char* line);

}  // namespace qor
