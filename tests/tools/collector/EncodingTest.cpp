#include <gtest/gtest.h>

#include "tools/collector/Encoding.h"

namespace kx::collector {
namespace {

TEST(EncodingTest, HexadecimalDigitsAreReadInPairs) {
  EXPECT_EQ(fromHexadecimal("00fF7a"), std::string("\0\xff\x7a", 3));
  EXPECT_EQ(fromHexadecimal(""), "");
  constexpr std::string_view digits = "abcd";
  EXPECT_FALSE(fromHexadecimal(digits.substr(0, 3))) << "one that is not there was read";
  for (const char *other : {"0g", "g0", " 0", "0 ", "-1", "+1", "0x"})
    EXPECT_FALSE(fromHexadecimal(other)) << other;
}

}  // namespace
}  // namespace kx::collector
