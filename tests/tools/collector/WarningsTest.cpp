#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/collector/Requests.h"
#include "tools/collector/Warnings.h"

namespace kx::collector {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::system_clock;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class WarningsTest : public ::testing::Test {
 protected:
  Warnings warnings;
  const system_clock::time_point now{milliseconds(1700000000000)};

  static Document usual() {
    Document message = messageDocument()[0];
    message["id"] = "9F7C5E40-0E3B-4A54-8F53-6B5C2A9A3E11";
    return message;
  }

  std::vector<std::string> about(const char *key, const Document &value) const {
    Document message = usual();
    message[key] = value;
    if (std::string(key) == "lat") message["lon"] = 1;
    if (std::string(key) == "lon") message["lat"] = 1;
    return warnings.about(message, now);
  }

  void expectWarning(const char *key, const Document &value, const std::string &text) const {
    EXPECT_THAT(about(key, value), ElementsAre(HasSubstr(text))) << key << " " << value;
  }
};

TEST_F(WarningsTest, AUsualMessageHasNone) {
  EXPECT_THAT(warnings.about(usual(), now), IsEmpty());
}

TEST_F(WarningsTest, AnIdentifierThatIsNoUUID) {
  for (const char *key : {"id", "ifa"}) {
    for (const char *value :
         {"B1C2", "9F7C5E40-0E3B-4A54-8F53-6B5C2A9A3E1", "9F7C5E40-0E3B-4A54-8F53-6B5C2A9A3E1g",
          "9F7C5E4000E3B-4A54-8F53-6B5C2A9A3E11"}) {
      expectWarning(key, value, "is not a UUID");
    }
    EXPECT_THAT(about(key, "9f7c5e40-0e3b-4a54-8f53-6b5c2a9a3e11"), IsEmpty());
  }
}

TEST_F(WarningsTest, AnIdentifierThatHasComeBefore) {
  warnings.remember("9F7C5E40-0E3B-4A54-8F53-6B5C2A9A3E11");
  EXPECT_THAT(warnings.about(usual(), now), ElementsAre(HasSubstr("has come before")));
  EXPECT_THAT(about("id", "00000000-0000-4000-8000-000000000001"), IsEmpty());
}

TEST_F(WarningsTest, OldIdentifiersAreForgotten) {
  warnings.remember("9F7C5E40-0E3B-4A54-8F53-6B5C2A9A3E11");
  for (int number = 0; number < 99999; ++number) warnings.remember(std::to_string(number));
  EXPECT_THAT(warnings.about(usual(), now), SizeIs(1));
  warnings.remember("another");
  EXPECT_THAT(warnings.about(usual(), now), IsEmpty());
}

TEST_F(WarningsTest, APositionThatIsNowhere) {
  for (const double value : {90.5, -90.5, 500.0}) expectWarning("lat", value, "\"lat\" is beyond");
  for (const double value : {180.5, -180.5}) expectWarning("lon", value, "\"lon\" is beyond");
  expectWarning("horizontalAccuracy", -1, "\"horizontalAccuracy\" is beyond");
  expectWarning("altitude", 200000, "\"altitude\" is beyond");
  expectWarning("tzOffset", 15 * 3600, "\"tzOffset\" is beyond");
  for (const double value : {90.0, -90.0}) EXPECT_THAT(about("lat", value), IsEmpty());
  for (const double value : {180.0, -180.0}) EXPECT_THAT(about("lon", value), IsEmpty());
  EXPECT_THAT(about("verticalAccuracy", -1), IsEmpty());
}

TEST_F(WarningsTest, ANumberIsShownAsItCame) {
  expectWarning("lat", 500u, "there is: 500");
  expectWarning("lat", -500, "there is: -500");
  expectWarning("lat", 90.25, "there is: 90.25");
  expectWarning("tzOffset", UINT64_MAX, "there is: 18446744073709551615");
}

TEST_F(WarningsTest, HalfAPositionAndNone) {
  Document message = usual();
  message["lat"] = 0;
  EXPECT_THAT(warnings.about(message, now), ElementsAre(HasSubstr("do not come together")));
  message["lon"] = 0.0;
  EXPECT_THAT(warnings.about(message, now), ElementsAre(HasSubstr("Gulf of Guinea")));
}

TEST_F(WarningsTest, ATimeThatIsHoursOff) {
  EXPECT_THAT(warnings.about(usual(), now + minutes(59)), IsEmpty());
  EXPECT_THAT(warnings.about(usual(), now - minutes(59)), IsEmpty());
  EXPECT_THAT(warnings.about(usual(), now + hours(3)),
              ElementsAre("\"eventTime\" is 3 h before this machine's time"));
  EXPECT_THAT(warnings.about(usual(), now - hours(1)),
              ElementsAre("\"eventTime\" is 1 h after this machine's time"));
  expectWarning("eventTime", INT64_MIN / 1000 * 1000, " h before");
}

TEST_F(WarningsTest, AKeyThatIsNotInTheReference) {
  expectWarning("colour", "red", "the key \"colour\" is not in the message reference");
}

TEST_F(WarningsTest, CodesThatLookWrong) {
  for (const char *value : {"de", "DEU", ""}) expectWarning("country", value, "a code of two letters");
  EXPECT_THAT(about("country", "DE"), IsEmpty());
  for (const char *value : {"26201", "262-1", "262-0123", "26a-01"})
    expectWarning("carrierCode", value, "262-01");
  for (const char *value : {"262-01", "310-410"}) EXPECT_THAT(about("carrierCode", value), IsEmpty());
  expectWarning("ips", Document::array({"10.0.0.1", "::1"}), "no IPv4 address");
  EXPECT_THAT(about("ips", Document::array()), IsEmpty());
}

TEST_F(WarningsTest, ThereIsAnEndToThem) {
  Document message = usual();
  for (int number = 0; number < 30; ++number) message["key" + std::to_string(number)] = 1;
  const auto all = warnings.about(message, now);
  EXPECT_THAT(all, SizeIs(21));
  EXPECT_EQ(all.back(), "and more");
}

}  // namespace
}  // namespace kx::collector
