#include <gtest/gtest.h>

#include <string>

#include "diagnostics/Hostname.h"

namespace kx {
namespace {

TEST(Hostname, MayCarryAPort) {
  for (const char *text :
       {"collect.example.com", "collect.example.com:8443", "localhost", "localhost:1", "a:65535", "192.0.2.1",
        "192.0.2.1:443", "[2001:db8::1]", "[2001:db8::1]:8443", "[::ffff:192.0.2.1]", "collect.example.com.",
        "xn--brtchen-90a.example", "under_score.example", "a-b.example"}) {
    EXPECT_TRUE(isHostnameWithOrWithoutPort(text)) << text;
  }
}

TEST(Hostname, IsNothingMore) {
  for (const char *text :
       {"", " ", "https://collect.example.com", "collect.example.com/", "collect.example.com/path", "a b",
        " a", "a\n", "user@collect.example.com", "collect.example.com?x", "collect.example.com#x", ".", "..",
        ".example", "a..b", "-a.example", "a-.example", "Brötchen.example"}) {
    EXPECT_FALSE(isHostnameWithOrWithoutPort(text)) << text;
  }
}

TEST(Hostname, HasAPortOfAtMost65535) {
  for (const char *text : {"a:", ":1", "a:0", "a:65536", "a:100000", "a:x", "a:1:2", "a:-1", "a:1 ",
                           "a:4294967376", "a:000080"}) {
    EXPECT_FALSE(isHostnameWithOrWithoutPort(text)) << text;
  }
}

TEST(Hostname, HasAnIPv6AddressInBrackets) {
  for (const char *text : {"::1", "2001:db8::1", "[::1", "::1]", "[]", "[1]", "[::x]", "[::1]x",
                           "[::1]:", "[1234]", "[dead.beef]", "[::1a", "[1:2:3:80", "[::1]:0"}) {
    EXPECT_FALSE(isHostnameWithOrWithoutPort(text)) << text;
  }
}

TEST(Hostname, IsAsLongAsNamesMayBe) {
  const std::string label(63, 'a');
  EXPECT_TRUE(isHostnameWithOrWithoutPort(label));
  EXPECT_FALSE(isHostnameWithOrWithoutPort(label + "a"));
  const std::string name = label + "." + label + "." + label + "." + std::string(61, 'a');
  EXPECT_TRUE(isHostnameWithOrWithoutPort(name));
  EXPECT_FALSE(isHostnameWithOrWithoutPort(name + "a"));
}

}  // namespace
}  // namespace kx
