// The -lj listing's text.
#include <gtest/gtest.h>

#include <string>

#include "cli/json_listing.h"

namespace qor {
namespace {

// Whatever bytes a row holds, the text is JSON and UTF-8: characters pass, the rest is U+FFFD.
TEST(JsonListing, StringsAreValidUtf8) {
  const struct {
    const char* in;
    const char* out;
  } cases[] = {
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
       "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\""},
      {"q\"b\\\n\x7f", "\"q\\\"b\\\\\\u000a\x7f\""},
      {"latin1 \xe9t\xe9", "\"latin1 \\ufffdt\\ufffd\""},
      {"cut \xe2\x82", "\"cut \\ufffd\\ufffd\""},
      {"overlong \xc0\xaf \xe0\x80\xaf", "\"overlong \\ufffd\\ufffd \\ufffd\\ufffd\\ufffd\""},
      {"surrogate \xed\xa0\x80", "\"surrogate \\ufffd\\ufffd\\ufffd\""},
      {"beyond \xf4\x90\x80\x80", "\"beyond \\ufffd\\ufffd\\ufffd\\ufffd\""},
  };
  for (const auto& c : cases) {
    std::string out;
    AppendJsonString(out, c.in);
    EXPECT_EQ(out, c.out) << c.in;
  }
}

// A database that answers but whose rows could not be read says so.
TEST(JsonListing, SaysWhenRowsWereNotRead) {
  std::string out;
  AppendDatabaseJson(out, "master", "10.0.0.1", true, false, nullptr, 0, 0);
  EXPECT_EQ(out,
            "{\"database\":\"master\",\"address\":\"10.0.0.1\",\"answers\":true,"
            "\"read\":false,\"rows\":[]}");
}

}  // namespace
}  // namespace qor
