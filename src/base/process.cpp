#include "base/process.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace qor {

int CheckRoot() {
  return getuid() == 0 && geteuid() == 0 ? 0 : 1;
}

namespace {
// The arguments' text, as main received it: one block, each argument ended by a NUL. Written once
// at start-up, read by SetProcessTitle.
char* argsBegin = nullptr;
char* argsEnd = nullptr;
}  // namespace

void KeepArguments(int argc, char** argv) {
  if (argc < 1 || argv[0] == nullptr) return;
  argsBegin = argv[0];
  argsEnd = argv[argc - 1] + std::strlen(argv[argc - 1]);
}

void SetProcessTitle(const char* title) {
  if (argsBegin == nullptr) return;
  size_t room = static_cast<size_t>(argsEnd - argsBegin);
  std::memset(argsBegin, 0, room + 1);
  std::memcpy(argsBegin, title, std::min(room, std::strlen(title)));
}

}  // namespace qor
