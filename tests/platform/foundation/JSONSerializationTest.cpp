#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "KXPublisher/platform/foundation/JSONSerialization.h"

namespace kx {
namespace {

std::optional<std::string> json(const Value &value) {
  return JSONSerialization::dataWithJSONObject(value);
}

TEST(JSONSerialization, IsCompact) {
  EXPECT_EQ(json(Array{Dictionary{{"text", "a b"}, {"list", Array{1, 2.5, false}}, {"map", Dictionary()}}}),
            "[{\"text\":\"a b\",\"list\":[1,2.5,false],\"map\":{}}]");
}

TEST(JSONSerialization, WritesASlashAsAPlainSlash) {
  EXPECT_EQ(json(Array{"https://host/path"}), "[\"https://host/path\"]");
}

TEST(JSONSerialization, KeepsARealBackslashBeforeASlash) {
  EXPECT_EQ(json(Array{"a\\/b"}), "[\"a\\\\/b\"]");
}

TEST(JSONSerialization, EscapesWhatJSONRequires) {
  EXPECT_EQ(json(Array{std::string("\"\\\n\x01\0", 5)}), "[\"\\\"\\\\\\n\\u0001\\u0000\"]");
}

TEST(JSONSerialization, KeepsTextBeyondASCII) {
  EXPECT_EQ(json(Array{"Zürich 東京 🚀"}), "[\"Zürich 東京 🚀\"]");
}

TEST(JSONSerialization, WritesIntegersOfSixtyFourBits) {
  EXPECT_EQ(json(Array{std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}),
            "[9223372036854775807,-9223372036854775808]");
}

TEST(JSONSerialization, WritesNumbersSoThatTheyReadBackTheSame) {
  EXPECT_EQ(json(Array{0.1, -122.4194, 1e300}), "[0.1,-122.4194,1e300]");
}

TEST(JSONSerialization, RefusesTextThatIsNotUTF8) {
  EXPECT_EQ(json(Array{"\xff"}), std::nullopt);
  EXPECT_EQ(json(Array{"cut short \xc3"}), std::nullopt);
  EXPECT_EQ(json(Dictionary{{"\xff", 1}}), std::nullopt);
  EXPECT_EQ(json(Array{Dictionary{{"deep", Array{"\xff"}}}}), std::nullopt);
}

TEST(JSONSerialization, RefusesNumbersThatAreNotFinite) {
  EXPECT_EQ(json(Array{std::nan("")}), std::nullopt);
  EXPECT_EQ(json(Dictionary{{"key", -std::numeric_limits<double>::infinity()}}), std::nullopt);
}

TEST(JSONSerialization, RefusesATopLevelThatIsNeitherArrayNorMap) {
  EXPECT_EQ(json("text"), std::nullopt);
  EXPECT_EQ(json(1), std::nullopt);
}

}  // namespace
}  // namespace kx
