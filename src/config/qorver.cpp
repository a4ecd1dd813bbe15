#include "config/qorver.h"

#include <cstring>

#include "base/line_reader.h"
#include "base/paths.h"
#include "base/shell.h"
#include "config/strutil.h"

namespace qor {

int GetQorVer(FixedText<128>& out) {
  return ReadQorVersion(kEnvFile, out);
}

int ReadQorVersion(const char* path, FixedText<128>& out) {
  LineReader in(path);
  if (!in.ok()) return 1;
  out.clear();
  char line[8192];
  while (in.Next(line, sizeof line)) {
    ChopLast(line);
    if (std::strncmp(line, "QOR_VERSION", 11) == 0) {
      // A value longer than the 127 characters the version field holds is cut there.
      GetVal(out, line, '=');
      return 0;
    }
  }
  return 1;
}

}  // namespace qor
