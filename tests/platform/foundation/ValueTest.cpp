#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "KXPublisher/platform/foundation/Value.h"

namespace kx {
namespace {

TEST(Value, KeepsItsKind) {
  EXPECT_EQ(*Value("text").text(), "text");
  EXPECT_EQ(*Value(7).integer(), 7);
  EXPECT_EQ(*Value(0.5).number(), 0.5);
  EXPECT_EQ(*Value(true).boolean(), true);
  EXPECT_EQ(Value(Array{1, 2}).array()->size(), 2u);
  EXPECT_EQ(Value(Dictionary{{"key", 1}}).dictionary()->size(), 1u);
  EXPECT_EQ(Value(1).number(), nullptr);
  EXPECT_EQ(Value(1).boolean(), nullptr);
  EXPECT_EQ(Value("1").integer(), nullptr);
}

TEST(Value, HoldsSixtyFourBits) {
  const std::int64_t milliseconds = 1700000000000;
  EXPECT_EQ(*Value(milliseconds).integer(), 1700000000000);
}

TEST(Value, IsEqualOnlyToOneOfItsKind) {
  EXPECT_EQ(Value(1), Value(1));
  EXPECT_NE(Value(1), Value(1.0));
  EXPECT_NE(Value(1), Value(true));
  EXPECT_NE(Value("a"), Value("A"));
}

TEST(Value, DescribesATextAsItIsAndTheRestAsJSON) {
  EXPECT_EQ(Value("a \"text\"").description(), "a \"text\"");
  EXPECT_EQ(Value(Array{"a", 1, true, 0.5}).description(), "[\"a\",1,true,0.5]");
  EXPECT_EQ(Value(-3).description(), "-3");
}

TEST(Value, CanAlwaysBeDescribed) {
  EXPECT_EQ(Value(Array{std::nan(""), std::numeric_limits<double>::infinity()}).description(),
            "[NaN,Infinity]");
  EXPECT_EQ((Dictionary{{"key", "\xff"}}).description(), "{\"key\":\"\xff\"}");
}

TEST(Dictionary, KeepsTheOrderInWhichKeysWereFirstSet) {
  Dictionary dictionary{{"b", 1}, {"a", 2}};
  dictionary.set("c", 3);
  dictionary.set("b", 4);
  EXPECT_EQ(dictionary.description(), "{\"b\":4,\"a\":2,\"c\":3}");
}

TEST(Dictionary, FindsWhatItHolds) {
  const Dictionary dictionary{{"key", "value"}};
  ASSERT_NE(dictionary.find("key"), nullptr);
  EXPECT_EQ(*dictionary.find("key"), Value("value"));
  EXPECT_EQ(dictionary.find("KEY"), nullptr);
  EXPECT_EQ(Dictionary().find(""), nullptr);
}

TEST(Dictionary, TakesAnothersEntriesOverItsOwn) {
  Dictionary dictionary{{"kept", 1}, {"replaced", 2}};
  dictionary.addEntriesFrom({{"replaced", 3}, {"added", 4}});
  EXPECT_EQ(dictionary, (Dictionary{{"kept", 1}, {"replaced", 3}, {"added", 4}}));
}

TEST(Dictionary, IsEqualWhateverTheOrder) {
  EXPECT_EQ((Dictionary{{"a", 1}, {"b", 2}}), (Dictionary{{"b", 2}, {"a", 1}}));
  EXPECT_NE((Dictionary{{"a", 1}}), (Dictionary{{"a", 1}, {"b", 2}}));
  EXPECT_NE((Dictionary{{"a", 1}}), (Dictionary{{"a", 2}}));
}

}  // namespace
}  // namespace kx
