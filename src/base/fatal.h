// The one way the program ends itself on a local failure it cannot work around (a pipeline that
// cannot be started, an unreadable /proc file). Every such place calls one of these, so they are
// easy to find; both end the process with exit status 1.
#pragma once

namespace qor {

// Exit status 1 without a message of its own.
[[noreturn]] void FatalExit();

// Reports what could not be started together with the system's error text (err style), then
// exits with status 1.
[[noreturn]] void FatalCommand(const char* what);

}  // namespace qor
