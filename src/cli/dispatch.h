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

int QorMain(int argc, char** argv);

}  // namespace qor
