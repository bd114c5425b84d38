#include <gtest/gtest.h>

#include "tools/collector/JSONPlaces.h"

namespace kx::collector {
namespace {

/// The key and the value as they stand in the text; "none" if they are not found.
std::string found(const std::string &json, const std::string &outer, const std::string &key) {
  const auto place = placeOf(json, outer, key);
  if (!place) return "none";
  return json.substr(place->key.offset, place->key.length) + "=" +
         json.substr(place->value.offset, place->value.length);
}

TEST(JSONPlacesTest, FindsAMemberOfAnObject) {
  EXPECT_EQ(found(R"({"a":1,"b":2})", "", "b"), R"("b"=2)");
  EXPECT_EQ(found(" [ { \"a\" : 1 , \"b\" :\t-2.5e3 } ] ", "", "b"), R"("b"=-2.5e3)");
  EXPECT_EQ(found(R"({"a":1})", "", "b"), "none");
  EXPECT_EQ(found("{}", "", "b"), "none");
  EXPECT_EQ(found("1", "", "b"), "none");
  EXPECT_EQ(found("", "", "b"), "none");
}

TEST(JSONPlacesTest, IsNotMisledByWhatStandsBefore) {
  const std::string json = R"({"x":{"b":[{"b":1}],"c":"}"},"y":"\"b\":1,\\","z":[[],"]"],"b":"}{"})";
  EXPECT_EQ(found(json, "", "b"), R"("b"="}{")");
}

TEST(JSONPlacesTest, KnowsAKeyHoweverItIsWritten) {
  EXPECT_EQ(found(R"({"\u0062":true})", "", "b"), R"("\u0062"=true)");
  EXPECT_EQ(found(R"({"a\"":null})", "", "a\""), R"("a\""=null)");
}

TEST(JSONPlacesTest, FindsAMemberOfAnObjectInAnother) {
  const std::string json = R"({"b":0,"header":{"a":1},"payload":{"a":[2,{"a":3}]}})";
  EXPECT_EQ(found(json, "payload", "a"), R"("a"=[2,{"a":3}])");
  EXPECT_EQ(found(json, "header", "a"), R"("a"=1)");
  EXPECT_EQ(found(json, "footer", "a"), "none");
  EXPECT_EQ(found(json, "b", "a"), "none");
}

}  // namespace
}  // namespace kx::collector
