// Which serialiser is linked in depends on the system; each is held against the same values here. What a
// serialiser may choose (the order of members, how it escapes a character, how many digits it writes) is no
// matter of these tests: they read the text back.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "KXPublisher/platform/foundation/JSONSerialization.h"

namespace kx {
namespace {

using nlohmann::json;

constexpr double infinity = std::numeric_limits<double>::infinity();

std::optional<std::string> textOf(const Value &value) {
  return JSONSerialization::dataWithJSONObject(value);
}

/// What a reader makes of `value` as JSON; "refused" when there is no text of it, "not JSON" when it cannot
/// be read.
json readBack(const Value &value) {
  const auto text = textOf(value);
  if (!text) return "refused";
  const json read = json::parse(*text, nullptr, false);
  return read.is_discarded() ? "not JSON" : read;
}

struct Case {
  const char *name;
  Value value;
  json expected;
};

void PrintTo(const Case &one, std::ostream *stream) {
  *stream << one.name;
}

std::string nameOf(const testing::TestParamInfo<Case> &info) {
  return info.param.name;
}

Array nested(int depth) {
  Array array;
  for (int level = 1; level < depth; ++level) array = Array(1, Value(array));
  return array;
}

json nestedJSON(int depth) {
  json array = json::array();
  for (int level = 1; level < depth; ++level) array = json::array({std::move(array)});
  return array;
}

// ---- What is written

class JSONValue : public testing::TestWithParam<Case> {};

TEST_P(JSONValue, ReadsBackAsItWas) {
  EXPECT_EQ(readBack(Array{GetParam().value}), json::array({GetParam().expected}));
}

TEST_P(JSONValue, ReadsBackAsItWasInAMap) {
  EXPECT_EQ(readBack(Dictionary{{"key", GetParam().value}, {"next", 1}}),
            json({{"key", GetParam().expected}, {"next", 1}}));
}

TEST_P(JSONValue, HasEverySlashPlain) {
  const std::string text = textOf(Array{GetParam().value}).value_or("");
  // An escape is two characters from its backslash on: one that begins with a second backslash is none.
  for (std::size_t at = text.find('\\'); at != std::string::npos; at = text.find('\\', at + 2)) {
    EXPECT_NE(text.at(at + 1), '/') << text;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, JSONValue,
    testing::Values(
        Case{"Empty", "", ""}, Case{"Plain", "a b", "a b"}, Case{"Slash", "/", "/"},
        Case{"Slashes", "https://host/path//", "https://host/path//"},
        Case{"BackslashBeforeSlash", "a\\/b", "a\\/b"},
        Case{"BackslashesBeforeSlash", "a\\\\/b\\\\\\/", "a\\\\/b\\\\\\/"},
        Case{"BackslashAtTheEnd", "/\\", "/\\"}, Case{"SlashBeforeBackslash", "/\\n/\\u002f", "/\\n/\\u002f"},
        Case{"Quotes", "\"/\\\"", "\"/\\\""},
        Case{"ControlCharacters", "\x01\x02\b\t\n\v\f\r\x1b\x1f\x7f", "\x01\x02\b\t\n\v\f\r\x1b\x1f\x7f"},
        Case{"Null", std::string("a\0b\0", 4), std::string("a\0b\0", 4)},
        Case{"LineSeparators", "\u2028/\u2029", "\u2028/\u2029"}, Case{"NextLine", "\u0085", "\u0085"},
        Case{"TwoBytes", "Zürich", "Zürich"}, Case{"ThreeBytes", "東京", "東京"},
        Case{"Emoji", "🚀/👩‍👩‍👧‍👧", "🚀/👩‍👩‍👧‍👧"},
        Case{"Combined", "e\u0301", "e\u0301"}, Case{"Noncharacters", "\uffff\ufffe", "\uffff\ufffe"},
        Case{"LastCharacter", "\U0010ffff", "\U0010ffff"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Numbers, JSONValue,
    testing::Values(Case{"Zero", 0, 0}, Case{"One", 1, 1}, Case{"MinusOne", -1, -1},
                    Case{"Largest", std::numeric_limits<std::int64_t>::max(), 9223372036854775807},
                    Case{"Smallest", std::numeric_limits<std::int64_t>::min(),
                         std::numeric_limits<std::int64_t>::min()},
                    Case{"BeyondADouble", std::int64_t{9007199254740993}, 9007199254740993},
                    Case{"Tenth", 0.1, 0.1}, Case{"Degrees", -122.41941550000001, -122.41941550000001},
                    Case{"Whole", 2.0, 2.0}, Case{"MinusZero", -0.0, -0.0}, Case{"Huge", 1e308, 1e308},
                    Case{"Greatest", std::numeric_limits<double>::max(), std::numeric_limits<double>::max()},
                    Case{"Tiny", 5e-324, 5e-324}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Others, JSONValue,
    testing::Values(Case{"True", true, true}, Case{"False", false, false},
                    Case{"EmptyArray", Array(), json::array()},
                    Case{"EmptyMap", Dictionary(), json::object()},
                    Case{"Mixed", Array{1, 2.5, "three", true, Array{Dictionary{{"deep", Array()}}}},
                         json::array({1, 2.5, "three", true, json::array({{{"deep", json::array()}}})})},
                    Case{"OddKeys", Dictionary{{"", 1}, {"/", 2}, {"\\/", 3}, {"\"\n", 4}, {"🚀", 5}},
                         json({{"", 1}, {"/", 2}, {"\\/", 3}, {"\"\n", 4}, {"🚀", 5}})},
                    Case{"Deep", nested(100), nestedJSON(100)}),
    nameOf);

TEST(JSONSerialization, KeepsBooleansAndNumbersApart) {
  EXPECT_EQ(textOf(Array{true, 1, false, 0}), "[true,1,false,0]");
}

TEST(JSONSerialization, KeepsTheSignOfZero) {
  EXPECT_TRUE(std::signbit(std::strtod(textOf(Array{-0.0}).value().c_str() + 1, nullptr)));
}

TEST(JSONSerialization, IsCompact) {
  EXPECT_EQ(textOf(Array{Dictionary{{"a key", Array{"a b", 1, Dictionary(), Array()}}}}),
            "[{\"a key\":[\"a b\",1,{},[]]}]");
}

TEST(JSONSerialization, WritesASlashAsAPlainSlash) {
  EXPECT_EQ(textOf(Dictionary{{"a/b", "https://host/path"}}), "{\"a/b\":\"https://host/path\"}");
}

TEST(JSONSerialization, KeepsARealBackslashBeforeASlash) {
  EXPECT_EQ(textOf(Array{"a\\/b"}), "[\"a\\\\/b\"]");
}

// ---- What is refused

class NoJSON : public testing::TestWithParam<Case> {};

TEST_P(NoJSON, IsRefusedInAnArray) {
  EXPECT_EQ(readBack(Array{1, GetParam().value}), "refused");
}

TEST_P(NoJSON, IsRefusedInAMap) {
  EXPECT_EQ(readBack(Dictionary{{"one", 1}, {"key", GetParam().value}}), "refused");
}

TEST_P(NoJSON, IsRefusedDeepDown) {
  EXPECT_EQ(readBack(Array{Dictionary{{"deep", Array{Array(), GetParam().value}}}}), "refused");
}

TEST_P(NoJSON, IsRefusedAsAKey) {
  if (const std::string *const text = GetParam().value.text()) {
    EXPECT_EQ(readBack(Dictionary{{*text, 1}}), "refused");
    EXPECT_EQ(readBack(Array{Dictionary{{"one", 1}, {*text, 1}}}), "refused");
  }
}

TEST_P(NoJSON, IsStillDescribed) {
  EXPECT_NE(JSONSerialization::descriptionOf(Dictionary{{"readable", GetParam().value}}).find("readable"),
            std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, NoJSON,
    testing::Values(
        Case{"NoLeadByte", "\xff", {}}, Case{"ContinuationAlone", "\x80", {}},
        Case{"CutShort", "cut short \xc3", {}}, Case{"CutShortOfThree", "\xe2\x82", {}},
        Case{"CutShortOfFour", "\xf0\x9f\x9a", {}},
        // Whoever reads the rest of it leaves the text, which is long enough to be alone in memory.
        Case{"CutShortAfterItsFirstByte", std::string(40, 'a') + "\xf0", {}},
        Case{"CutShortInside", "\xe2\x82/", {}}, Case{"Overlong", "\xc0\xaf", {}},
        Case{"OverlongOfThree", "\xe0\x80\xaf", {}}, Case{"OverlongOfFour", "\xf0\x80\x80\xaf", {}},
        Case{"OverlongNull", "\xc0\x80", {}}, Case{"HighSurrogate", "\xed\xa0\x80", {}},
        Case{"LowSurrogate", "a\xed\xb0\x80", {}}, Case{"PairOfSurrogates", "\xed\xa0\xbd\xed\xba\x80", {}},
        Case{"BeyondUnicode", "\xf4\x90\x80\x80", {}}, Case{"FiveBytes", "\xf8\x88\x80\x80\x80", {}}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(Numbers, NoJSON,
                         testing::Values(Case{"NotANumber", std::nan(""), {}}, Case{"Infinity", infinity, {}},
                                         Case{"MinusInfinity", -infinity, {}}),
                         nameOf);

TEST(JSONSerialization, RefusesATopLevelThatIsNeitherArrayNorMap) {
  for (const Value &value : {Value("text"), Value(1), Value(2.5), Value(true)}) {
    EXPECT_EQ(textOf(value), std::nullopt) << value.description();
  }
}

// ---- What is described

TEST(JSONSerialization, DescribesWhatIsJSONAsJSON) {
  EXPECT_EQ(JSONSerialization::descriptionOf(Dictionary{{"a/b", Array{"c/d", 1}}}), "{\"a/b\":[\"c/d\",1]}");
}

TEST(JSONSerialization, DescribesWhateverItIs) {
  EXPECT_EQ(JSONSerialization::descriptionOf(7), "7");
  const std::string description = JSONSerialization::descriptionOf(
      Dictionary{{"name", "value"}, {"list", Array{infinity, "\xff/", 2.5}}});
  for (const char *part : {"name", "value", "list", "inf", "/", "2.5"}) {
    const auto same = [](char one, char other) { return std::tolower(one) == std::tolower(other); };
    EXPECT_NE(std::search(description.begin(), description.end(), part, part + std::strlen(part), same),
              description.end())
        << part << " in " << description;
  }
}

}  // namespace
}  // namespace kx
