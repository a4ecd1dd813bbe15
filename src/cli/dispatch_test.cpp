#include "cli/dispatch.h"

#include <gtest/gtest.h>

namespace qor {
namespace {

TEST(CliDispatch, DebugSuffixIsStrippedFromTheOptionWordOnly) {
  struct Case {
    const char* in;
    const char* word;
    bool debug;
  } cases[] = {
      {"-startx", "-start", true}, {"-vx", "-v", true}, {"-x", "-", true},
      {"-start", "-start", false}, {"x", "x", false},   {"-", "-", false},
      {"-lfxx", "-lfx", true},     {"", "", false},     {"start_x", "start_x", false},
  };
  for (const Case& c : cases) {
    OptionWord w;
    w.set(c.in);
    EXPECT_EQ(StripDebugSuffix(w), c.debug) << c.in;
    EXPECT_STREQ(w.c_str(), c.word) << c.in;
  }
}

}  // namespace
}  // namespace qor
