#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/tools/collector/Requests.h"
#include "tools/collector/DocumentRules.h"
#include "tools/collector/MessageValues.h"

namespace kx::collector {
namespace {

using ::testing::ElementsAre;

constexpr const char *keys[] = {"sdkName",  "sdkVer",        "ips", "id",   "eventTime", "ifa",
                                "dnt",      "lat",           "lon", "city", "zip",       "languages",
                                "tzOffset", "connectionType"};

std::string usualText() {
  return R"([{"sdkName":"KXPublisher iOS", "sdkVer" :"v1.0","ips":["10.0.0.1","::1"],"id":"B1C2",)"
         R"("eventTime":1700000000000,"ifa":"6D92078A-8246-4BA4-AE5B-76104861E7DC","dnt":0,"lat":52.520008,)"
         R"("lon":-1.25e1,"city":"a \"city\"\n\/ \\","languages":["de"],"tzOffset":-3600,)"
         R"("connectionType":"WIFI"}])";
}

/// The usual one with something else in the place of one part of it.
std::string textWith(const std::string &part, const std::string &other) {
  std::string text = usualText();
  return text.replace(text.find(part), part.size(), other);
}

void expectEqual(const JSONValue &value, const JSONValue &expected) {
  EXPECT_EQ(value.type, expected.type);
  EXPECT_EQ(value.text, expected.text);
  EXPECT_EQ(value.fraction, expected.fraction);
  EXPECT_EQ(value.integer, expected.integer);
  EXPECT_EQ(value.natural, expected.natural);
  ASSERT_EQ(value.size, expected.size);
  for (std::size_t at = 0; at < value.size; ++at) expectEqual(value.elements[at], expected.elements[at]);
}

/// What is read quickly has to be a message, and the same one.
bool isReadAsTheDocument(const std::string &text) {
  const auto values = MessageValues::read(text);
  if (!values) return false;
  EXPECT_TRUE(isMessageDocument(text)) << text;
  if (!isMessageDocument(text)) return false;
  const Document document = parseDocument(text);
  const MessageValues expected(document.front());
  for (const char *key : keys) {
    SCOPED_TRACE(text + " " + key);
    expectEqual((*values)[key], expected[key]);
  }
  return true;
}

TEST(MessageValuesTest, AreThoseOfTheText) {
  auto values = MessageValues::read(usualText());
  ASSERT_TRUE(values);
  const MessageValues moved = std::move(*values);
  EXPECT_EQ(moved["id"].text, "B1C2");
  EXPECT_EQ(moved["city"].text, "a \"city\"\n/ \\");
  EXPECT_EQ(moved["eventTime"].signedInteger(), 1700000000000);
  EXPECT_EQ(moved["tzOffset"].signedInteger(), -3600);
  EXPECT_EQ(moved["lat"].number(), 52.520008);
  EXPECT_EQ(moved["lon"].number(), -12.5);
  EXPECT_EQ(moved["dnt"].number(), 0);
  ASSERT_EQ(moved["ips"].size, 2u);
  EXPECT_EQ(moved["ips"].elements[1].text, "::1");
  EXPECT_FALSE(moved["zip"]);
  EXPECT_FALSE(moved["colour"]);
  EXPECT_TRUE(isReadAsTheDocument(usualText()));
}

TEST(MessageValuesTest, AreThereForEveryMessageThatIsPlain) {
  EXPECT_TRUE(isReadAsTheDocument(messageDocument().dump()));
  EXPECT_TRUE(isReadAsTheDocument(messageDocument().dump(2)));
  for (const char *time : {"0", "-1000", "-0", "9223372036854775000"}) {
    EXPECT_TRUE(isReadAsTheDocument(textWith("1700000000000", time))) << time;
  }
  for (const char *number :
       {"0", "-0", "0.0", "1E2", "-1e-3", "18446744073709551615", "1.7976931348623157e308"}) {
    EXPECT_TRUE(isReadAsTheDocument(textWith("52.520008", number))) << number;
  }
  EXPECT_TRUE(isReadAsTheDocument(textWith(R"("10.0.0.1","::1")", "")));
  EXPECT_TRUE(isReadAsTheDocument(textWith("city\\\"\\n", "\x7F")));
}

TEST(MessageValuesTest, AreLeftToTheDocumentForAMessageThatIsNotPlain) {
  for (const auto &[part, other] : {std::pair("a \\\"", "\xC3\xBC"), std::pair("a \\\"", "\\u00fc"),
                                    std::pair("\"dnt\"", "\"aNewKey\"")}) {
    EXPECT_TRUE(isMessageDocument(textWith(part, other))) << other;
    EXPECT_FALSE(MessageValues::read(textWith(part, other))) << other;
  }
}

TEST(MessageValuesTest, AreAbsentForWhatIsRefused) {
  for (const char *text :
       {"", " ", "[", "[]", "{}", "[{}]", "[[]]", "[1]", "null", "\"x\"", "[{},{}]", "[{\"id\":", "]"}) {
    EXPECT_FALSE(isMessageDocument(text)) << text;
    EXPECT_FALSE(MessageValues::read(text)) << text;
  }
  const std::pair<const char *, std::string> changes[] = {
      {"\"dnt\"", "\"id\""},     // twice
      {"\"B1C2\"", "\"\""},      // empty
      {"1700000000000", "1"},    // no whole second
      {"1700000000000", "1e3"},  // no integer
      {"1700000000000", "18446744073709551616"},
      {"\"city\"", "\"sdkVer\""},  // twice, and good in itself
      {"1700000000000", "18446744073709551000"},
      {"52.520008", "1e999"},
      {"52.520008", "012"},
      {"52.520008", "+1"},
      {"52.520008", "1."},
      {"52.520008", "-"},
      {"52.520008", "NaN"},
      {"52.520008", "null"},
      {"52.520008", "true"},
      {"52.520008", "[1]"},
      {"52.520008", "{}"},
      {"-3600", "-36.5"},
      {"\"dnt\":0", "\"dnt\":2"},
      {"\"dnt\":0", "\"dnt\":-1"},
      {"\"WIFI\"", "\"wifi\""},
      {"[\"de\"]", "[]"},
      {"[\"de\"]", "[\"de\",1]"},
      {"[\"de\"]", "[[\"de\"]]"},
      {"[\"de\"]", "[{\"de\":1}]"},
      {"[\"de\"]", "[\"de\",]"},
      {"\"city\"", "\"carrierName\""},
      {"\"ifa\"", "\"aNewKey\""},  // one that is missing
      {"\\n", "\\x"},
      {"\\n", "\n"},
      {"\\n", std::string(1, '\0')},
      {"\\n", "\xFF"},
      {"\\n", "\\udc00"},
      {"}]", "}],"},
      {"}]", "}]]"},
      {"}]", "}"},
      {"}]", ",}]"},
      {"}]", "}" + std::string(1, '\0') + "]"},
      {"[{", "\xEF\xBB\xBF[{"},
      {"[{", "[[{"},
      {"[{", "[{},{"},
  };
  for (const auto &[part, other] : changes) {
    const std::string text = textWith(part, other);
    EXPECT_FALSE(isMessageDocument(text)) << text;
    EXPECT_FALSE(MessageValues::read(text)) << text;
  }
  for (std::size_t size = 0; size < usualText().size(); ++size) {
    EXPECT_FALSE(MessageValues::read(usualText().substr(0, size))) << size;
  }
  EXPECT_FALSE(MessageValues::read(usualText() + std::string("\0", 1)));
  EXPECT_FALSE(MessageValues::read(usualText() + "x"));
  EXPECT_FALSE(MessageValues::read(std::string(100000, '[')));
}

TEST(MessageValuesTest, NoControlCharacterIsReadInATextWhereverItStands) {
  const std::string text = usualText();
  const std::size_t name = text.find("\"ifa\":\"") + 7;
  const std::size_t end = text.find('"', name);
  ASSERT_GE(end - name, 32U) << "long enough for what is looked at at a time";
  for (char control = '\0'; control < ' '; ++control) {
    for (std::size_t at = name; at <= end; ++at) {
      const std::string changed = std::string(text).insert(at, 1, control);
      ASSERT_FALSE(MessageValues::read(changed)) << static_cast<int>(control) << " at " << at;
    }
  }
}

TEST(MessageValuesTest, NothingIsReadThatTheDocumentIsNot) {
  std::mt19937 random(1);
  const std::string replacements = "0123456789abeEu.+-\"\\{}[]:, \n\t\x01\x7F\x80x/";
  int readable = 0;
  for (int count = 0; count < 20000; ++count) {
    std::string text = usualText();
    for (int changes = 1 + count % 3; changes > 0; --changes) {
      const std::size_t at = random() % text.size();
      const char other = replacements[random() % replacements.size()];
      switch (random() % 3) {
        case 0:
          text[at] = other;
          break;
        case 1:
          text.insert(at, 1, other);
          break;
        default:
          text.erase(at, 1);
      }
    }
    if (isReadAsTheDocument(text)) ++readable;
  }
  EXPECT_GT(readable, 2000);  // the others were refused, or would have been read as a document
}

TEST(MessageValuesTest, OfADocumentAreThoseOfKnownKeys) {
  const Document document = {
      {"lat", "north"}, {"eventTime", 1.5}, {"other", 1}, {"ips", {1u, nullptr, true}}, {"zip", {{"a", 1}}}};
  const MessageValues values(document);
  EXPECT_EQ(values["lat"].text, "north");
  EXPECT_EQ(values["eventTime"].number(), 1.5);
  EXPECT_FALSE(values["other"]);
  EXPECT_EQ(values["zip"].type, JSONValue::Type::object);
  std::vector<JSONValue::Type> types;
  for (const JSONValue &value : values["ips"]) types.push_back(value.type);
  EXPECT_THAT(types, ElementsAre(JSONValue::Type::natural, JSONValue::Type::null, JSONValue::Type::boolean));
}

}  // namespace
}  // namespace kx::collector
