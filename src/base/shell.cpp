#include "base/shell.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace qor {

namespace {

class PopenRunner final : public ShellRunner {
 public:
  bool Run(const char* command, size_t lineMax, LineSink sink) override {
    FILE* fp = popen(command, "r");
    if (fp == nullptr) return false;
    char line[kShellLineMax];
    int size = static_cast<int>(lineMax < sizeof line ? lineMax : sizeof line);
    while (std::fgets(line, size, fp) != nullptr) sink(line);
    pclose(fp);
    return true;
  }
};

PopenRunner popen_runner;
ShellRunner* current = &popen_runner;

}  // namespace

ShellRunner& CurrentShell() {
  return *current;
}
ShellRunner& PopenShell() {
  return popen_runner;
}
void SetShellRunner(ShellRunner* runner) {
  current = runner ? runner : &popen_runner;
}

bool IsShellSafeWord(const char* value) {
  // A leading '-' would be read as an option by the program the word is handed to.
  if (value == nullptr || *value == '\0' || *value == '-') return false;
  for (const char* p = value; *p; ++p) {
    unsigned char c = static_cast<unsigned char>(*p);
    if (!std::isalnum(c) && c != '.' && c != '-' && c != '_' && c != ':') return false;
  }
  return true;
}

void ChopLast(char* line) {
  size_t n = std::strlen(line);
  if (n > 0) line[n - 1] = '\0';
}

}  // namespace qor
