#include "base/fatal.h"

#include <err.h>
#include <unistd.h>

#include <cstdlib>

namespace qor {

void FatalExit() {
  std::exit(1);
}

void FatalCommand(const char* what) {
  err(1, "%s", what);
}

void LeaveAfterFork() {
  _exit(0);
}

}  // namespace qor
