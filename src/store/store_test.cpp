// The store's pure parts: the password as the connection URL carries it, and the selectors that
// cannot be placed in the 128-byte where clause.
#include <gtest/gtest.h>

#include <string>

#include "store/cluster_query.h"
#include "store/pools.h"

namespace qor {
namespace {

TEST(Store, PasswordIsUrlEncoded) {
  struct {
    const char* text;
    const char* encoded;
  } cases[] = {{"Qor Pw&50%x", "Qor+Pw%2650%25x"},
               {"AZaz09-_.~", "AZaz09-_.~"},
               {"/+=?@:#", "%2f%2b%3d%3f%40%3a%23"},
               {"\xc3\xa9\x01", "%c3%a9%01"}};
  for (const auto& c : cases) {
    char out[64];
    ASSERT_TRUE(UrlEncode(out, sizeof out, c.text));
    EXPECT_STREQ(out, c.encoded);
  }
  char small[6];
  EXPECT_FALSE(UrlEncode(small, sizeof small, "a b c d"));
}

TEST(Store, SelectorsThatDoNotFitAreRefusedNotCut) {
  // A cut pattern would select other rows. Quotes count doubled.
  SqlText sql;
  struct {
    std::string cond;
    bool fits;
  } cases[] = {{"like_" + std::string(42, 'p'), true},
               {"like_" + std::string(43, 'p'), false},
               {std::string(108, 'h'), true},
               {std::string(109, 'h'), false},
               {std::string(54, '\''), true},
               {std::string(55, '\''), false},
               {"o\\brien", false}};
  for (const auto& c : cases) EXPECT_EQ(BuildClusterSelect(sql, c.cond.c_str()), c.fits) << c.cond;
}

}  // namespace
}  // namespace qor
