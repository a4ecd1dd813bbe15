#include "cli/dispatch.h"

#include <gtest/gtest.h>

#include <string>

namespace qor {
namespace {

TEST(CliDispatch, DebugSuffixIsStrippedFromTheOptionWordOnly) {
  // Longer than an OptionWord holds: the argument's own last character decides, not the one
  // where the word would be cut.
  const std::string longDebug = "-" + std::string(125, 'a') + "x" + std::string(20, 'a') + "x";
  const std::string longPlain = "-" + std::string(125, 'a') + "x" + std::string(20, 'a');
  struct Case {
    std::string in;
    std::string word;
    bool debug;
  } cases[] = {
      {"-startx", "-start", true},
      {"-vx", "-v", true},
      {"-x", "-", true},
      {"-start", "-start", false},
      {"x", "x", false},
      {"-", "-", false},
      {"-lfxx", "-lfx", true},
      {"", "", false},
      {"start_x", "start_x", false},
      {longDebug, longDebug.substr(0, longDebug.size() - 1), true},
      {longPlain, longPlain, false},
  };
  for (const Case& c : cases) {
    std::string_view w = c.in;
    EXPECT_EQ(StripDebugSuffix(w), c.debug) << c.in;
    EXPECT_EQ(w, c.word) << c.in;
  }
}

}  // namespace
}  // namespace qor
