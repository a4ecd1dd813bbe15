// The option word and its operands, as the shell hands them over: words end at a NUL byte. Only
// what is decided from the words is run, then what becomes of the host operand: the address
// check before a shell command and the removal statement's quoted literal.
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/shell.h"
#include "cli/dispatch.h"
#include "config/qorconf.h"
#include "fuzz_input.h"
#include "store/cluster_writes.h"

namespace {

// The statement must end right after the literal that holds the host: a quote inside it that is
// not doubled would let the operand write SQL of its own. A backslash never gets that far.
void CheckRemoveStatement(const char* host) {
  qor::SqlText sql;
  if (!qor::RemoveStatement(sql, host)) return;
  const char* open = std::strchr(sql.c_str(), '\'');
  if (open == nullptr) return;  // the words that select rows without a literal
  if (std::strchr(open, '\\') != nullptr) std::abort();
  const char* p = open + 1;
  while (*p != '\0' && !(*p == '\'' && p[1] != '\'')) p += *p == '\'' ? 2 : 1;
  if (std::strcmp(p, "';") != 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace qor;
  std::vector<std::string> words = fuzz::Split(data, size, '\0', 8);
  words.insert(words.begin(), "qorclustd");
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);

  const CommandLine line = ParseCommandLine(static_cast<int>(words.size()), argv.data());
  if (line.word.size() > OptionWord::kCapacity) std::abort();
  if (line.host != nullptr && (line.host != argv[2] || *line.host == '\0')) std::abort();
  if (line.host == nullptr) return 0;

  // A word let onto a command line unquoted holds nothing the shell would act on, and is no option.
  if (IsShellSafeWord(line.host)) {
    if (line.host[0] == '-') std::abort();
    for (const char* p = line.host; *p; ++p) {
      if (std::isspace(static_cast<unsigned char>(*p)) ||
          std::strchr("|&;<>()$`\\\"'*?[]#~{}", *p)) {
        std::abort();
      }
    }
  }
  cnf.cldbname = "qor";
  CheckRemoveStatement(line.host);
  return 0;
}
