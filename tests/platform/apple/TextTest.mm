// Texts on their way between the library and the system.

#import <Foundation/Foundation.h>

#include <gtest/gtest.h>

#include "platform/apple/AppleText.h"

namespace kx {
namespace {

TEST(AppleText, AnEmptyOneIsAText) {
  EXPECT_EQ(textOf(@""), "");
  NSString *const empty = stringOf("");
  ASSERT_TRUE(empty != nil);
  EXPECT_EQ(empty.length, 0u);
}

TEST(AppleText, NoneIsNone) {
  EXPECT_EQ(textOf(nil), std::nullopt);
}

TEST(AppleText, KeepsEveryCharacter) {
  const std::string text("a\0\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80 z", 13);
  EXPECT_EQ(stringOf(text).length, 8u);
  EXPECT_EQ(textOf(stringOf(text)), text);
}

TEST(AppleText, ThatIsNotUTF8IsNone) {
  EXPECT_TRUE(stringOf("\xE4") == nil);
  EXPECT_TRUE(stringOf("ab\xC3") == nil);
}

TEST(AppleText, WithHalfASurrogatePairIsNone) {
  const unichar half[] = {'a', 0xD83D, 'b'};
  EXPECT_EQ(textOf([NSString stringWithCharacters:half length:3]), std::nullopt);
}

}  // namespace
}  // namespace kx
