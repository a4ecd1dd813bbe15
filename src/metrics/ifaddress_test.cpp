#include "metrics/ifaddress.h"

#include <gtest/gtest.h>

namespace {

TEST(MetricsIfaddress, Interfaces) {
  struct Case {
    const char* ifname;
    const char* expected;
  };
  const Case cases[] = {
      {"lo", "127.0.0.1"},
      {"", "0"},
      {"0", "0"},
      {"qornoif9", "before"},  // no such interface: the address stays
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.ifname);
    qor::FixedText<128> address("before");
    EXPECT_EQ(qor::getifaddress(address, c.ifname), 0);
    EXPECT_EQ(address, c.expected);
  }
}

}  // namespace
