// The shell runner: the one place that starts shell pipelines (/bin/sh -c, read like popen).
// Run reads the output to the end line by line and waits for the pipeline; a caller that asks for
// its exit status gets it where this process collects its children (SIGCHLD not ignored: the
// one-shot commands and the daemon's slow pass). Every pipeline Run starts has a bound: one still
// running after its seconds is killed with its whole process group, so no command can hold the
// daemon's cycle for ever. Start is for the one command that must not be cut (the take-over
// script): it returns at once, the command runs beside the caller, and PollShell and WaitShell
// learn its end and exit status later, which works whether or not SIGCHLD is ignored. No call
// blocks longer than it says. Tests swap the runner (SetShellRunner) to make an address "not
// answer" or to point a pipeline at a sample file, while everything else stays real.
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

// A command Start left running: the process id of the shell that runs it, and the read end of
// the pipe on which that shell writes the command's exit status when the command ends.
struct BackgroundShell {
  int pid = -1;
  int fd = -1;
};

// PollShell's answers besides an exit status (0 to 255).
constexpr int kShellRunning = -2;
constexpr int kShellNoStatus = -1;  // the shell ended without reporting one: it was killed

class ShellRunner {
 public:
  virtual ~ShellRunner() = default;
  // Returns false when the pipeline could not be started; then no line was delivered. A pipeline
  // still running after seconds is killed (logged); what it printed until then was delivered.
  // status, when given, receives the exit status (kShellNoStatus when killed or not collectable),
  // and the pipeline's standard error joins its output, so that the caller also sees why it failed.
  // Pipelines run without a controlling terminal: a command that would ask for a password fails.
  virtual bool Run(const char* command, size_t lineMax, int seconds, LineSink sink,
                   int* status) = 0;
  // Starts command in a session of its own with its output discarded and returns at once; false
  // when it could not be started. Nothing ever kills it, and it outlives this process.
  virtual bool Start(const char* command, BackgroundShell* started) = 0;
};

// The runner in use: the real one unless a test installed another.
ShellRunner& CurrentShell();
// nullptr puts the real runner back.
void SetShellRunner(ShellRunner* runner);
// The real runner itself, for runners that wrap it.
ShellRunner& RealShell();

// Runs command through the current runner and calls f(char* line) for every line read.
template <class F>
bool RunShell(const char* command, size_t lineMax, F&& f, int seconds = kShellSeconds,
              int* status = nullptr) {
  LineSink sink{&f, [](void* p, char* line) { (*static_cast<decltype(&f)>(p))(line); }};
  return CurrentShell().Run(command, lineMax, seconds, sink, status);
}

// Never blocks: kShellRunning, or the exit status once the command has ended (the descriptor is
// then closed, and every later call answers kShellNoStatus).
int PollShell(BackgroundShell& shell);
// Returns when the command has ended or ms milliseconds have passed, whichever comes first.
void WaitShell(const BackgroundShell& shell, int ms);

// True when value may stand on a command line unquoted: non-empty, not beginning with '-', and
// made only of letters, digits, '.', '-', '_' and ':' (addresses and host names).
bool IsShellSafeWord(const char* value);

// Removes the last character of line (the newline a line read ends with), as the program always
// did before parsing a line; an empty line stays empty.
void ChopLast(char* line);

}  // namespace qor
