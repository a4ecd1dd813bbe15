// Facts about this process that several commands check.
#pragma once

namespace qor {

// 0 when the real and the effective user id are both 0 (root), 1 otherwise.
int CheckRoot();

// The command line this process shows to ps: main hands over its arguments once, and a child
// that is not the daemon itself renames itself, so that the daemon's running check, -ps and -stop,
// which look for "qorclustd -start", see the daemon alone. The title is cut to the space the
// arguments had.
void KeepArguments(int argc, char** argv);
void SetProcessTitle(const char* title);

}  // namespace qor
