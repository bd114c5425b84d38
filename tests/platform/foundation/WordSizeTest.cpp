#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include "KXPublisher/platform/foundation/JSONSerialization.h"
#include "KXPublisher/platform/foundation/StringFormat.h"
#include "KXPublisher/platform/foundation/Value.h"

// What must come out the same where a pointer and a long have 32 bits as where they have 64.

namespace kx {
namespace {

template <class Integer>
class WordSizeTest : public ::testing::Test {};

using Integers =
    ::testing::Types<signed char, short, int, long, long long, unsigned char, unsigned short, unsigned>;

struct IntegerNames {
  template <class Integer>
  static std::string GetName(int index) {
    constexpr const char *names[] = {"SignedChar", "Short",        "Int",           "Long",
                                     "LongLong",   "UnsignedChar", "UnsignedShort", "Unsigned"};
    return names[index];
  }
};

TYPED_TEST_SUITE(WordSizeTest, Integers, IntegerNames);

TYPED_TEST(WordSizeTest, KeepsTheLimitsOfEveryIntegerInAValue) {
  for (const TypeParam limit :
       {std::numeric_limits<TypeParam>::min(), std::numeric_limits<TypeParam>::max()}) {
    const Value value(limit);
    ASSERT_NE(value.integer(), nullptr);
    EXPECT_EQ(std::to_string(*value.integer()), std::to_string(limit));
  }
}

TYPED_TEST(WordSizeTest, PrintsTheLimitsOfEveryIntegerWhateverLengthThePlaceholderNames) {
  for (const TypeParam limit :
       {std::numeric_limits<TypeParam>::min(), std::numeric_limits<TypeParam>::max()}) {
    const char *placeholder = std::numeric_limits<TypeParam>::is_signed ? "%ld" : "%lu";
    EXPECT_EQ(stringWithFormat(placeholder, {limit}), std::to_string(limit));
    EXPECT_EQ(stringWithFormat("%@", {limit}), std::to_string(limit));
  }
}

TEST(WordSize, WritesIntegersBeyondThirtyTwoBitsExactly) {
  const Array integers{2147483647,       2147483648,
                       4294967296,       1700000000000,
                       9007199254740993, std::numeric_limits<std::int64_t>::max(),
                       -2147483649,      std::numeric_limits<std::int64_t>::min()};
  EXPECT_EQ(JSONSerialization::dataWithJSONObject(integers),
            "[2147483647,2147483648,4294967296,1700000000000,9007199254740993,9223372036854775807,"
            "-2147483649,-9223372036854775808]");
}

TEST(WordSize, ComparesIntegersInAllTheirBits) {
  EXPECT_NE(Value(1), Value((std::int64_t{1} << 32) + 1));
}

TEST(WordSize, SharesATimeBetweenThreadsWithoutALock) {
  EXPECT_TRUE(std::atomic<double>::is_always_lock_free);
  struct BesideAByte {
    char byte;
    std::atomic<double> time;
  };
  EXPECT_EQ(offsetof(BesideAByte, time) % sizeof(double), 0u);
}

}  // namespace
}  // namespace kx
