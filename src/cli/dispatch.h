// The program's entry: reads the option word, builds the start-up state every command needs,
// refuses a server without a valid cluster configuration, and runs the command. Returns the
// process's exit status.
#pragma once

#include <string_view>

#include "base/fixed_text.h"

namespace qor {

using OptionWord = FixedText<128>;

// Removes the debug suffix: a word that begins with "-" and ends in "x" loses the "x" and the
// result is true (debug mode). Works on the whole argument: an overlong word is cut to an
// OptionWord only afterwards, so its own last character decides.
bool StripDebugSuffix(std::string_view& word);

// What a command line asks for, decided from its words alone: no start-up state is built and
// nothing outside the process is reached.
struct CommandLine {
  OptionWord word;             // the option word without its debug suffix, cut to 127 characters
  bool debug = false;          // the word carried the debug suffix
  int command = -1;            // the word's entry in the command table; -1 gets the usage text
  const char* host = nullptr;  // the first operand, when given and not empty
  int tries = 0;               // -ping's tries: 3 with one operand, the second's value with two
  char* const* operands = nullptr;  // every operand, in order
  int operandCount = 0;
};
CommandLine ParseCommandLine(int argc, char** argv);

int QorMain(int argc, char** argv);

}  // namespace qor
