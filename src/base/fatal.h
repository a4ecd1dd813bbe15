// The ways the program ends itself other than by returning from main: a local failure it cannot
// work around (a pipeline that cannot be started, an unreadable /proc file), and the invoking side
// of the daemon's forks. Every such place calls one of these, so they are easy to find; nothing
// else calls exit or _exit.
#pragma once

namespace qor {

// Exit status 1 without a message of its own.
[[noreturn]] void FatalExit();

// Reports what could not be started together with the system's error text (err style), then
// exits with status 1.
[[noreturn]] void FatalCommand(const char* what);

// Exit status 0 at once, nothing flushed or closed: the stdio buffers and the library's
// connections belong to the child that goes on, and would otherwise be written or shut twice.
[[noreturn]] void LeaveAfterFork();

}  // namespace qor
