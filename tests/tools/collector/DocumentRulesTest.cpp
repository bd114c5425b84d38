#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "tests/tools/collector/Requests.h"
#include "tools/collector/DocumentRules.h"
#include "tools/collector/Refusal.h"

namespace kx::collector {
namespace {

using ::testing::HasSubstr;

std::string refusalOf(void (*check)(const Document &), const Document &document) {
  try {
    check(document);
    return "";
  } catch (const Refusal &refusal) {
    return std::to_string(refusal.status()) + " " + refusal.what();
  }
}

std::string loginRefusal(const Document &document) {
  return refusalOf(checkLoginDocument, document);
}

std::string messageRefusal(const Document &document) {
  return refusalOf(checkMessageDocument, document);
}

Document loginWith(const char *part, const char *key, const Document &value) {
  Document document = loginDocument();
  document[part][key] = value;
  return document;
}

Document messageWith(const std::string &key, const Document &value) {
  Document document = messageDocument();
  document[0][key] = value;
  return document;
}

TEST(LoginDocumentTest, IsAcceptedAsTheProtocolHasIt) {
  EXPECT_EQ(loginRefusal(loginDocument()), "");
}

TEST(LoginDocumentTest, MayHaveANameThatIsALoneFullStop) {
  EXPECT_EQ(loginRefusal(loginWith("payload", "name", ".")), "");
}

TEST(LoginDocumentTest, MustBeAnObject) {
  EXPECT_EQ(loginRefusal(Document::array({loginDocument()})), "400 the login document must be an object");
  EXPECT_EQ(loginRefusal("text"), "400 the login document must be an object");
}

TEST(LoginDocumentTest, NeedsEveryMember) {
  for (const char *part : {"header", "payload"}) {
    Document document = loginDocument();
    document.erase(part);
    EXPECT_EQ(loginRefusal(document), "400 the key \"" + std::string(part) + "\" is missing");
    const Document members = loginDocument()[part];
    for (const auto &member : members.items()) {
      document = loginDocument();
      document[part].erase(member.key());
      EXPECT_EQ(loginRefusal(document),
                "400 the key \"" + std::string(part) + "." + member.key() + "\" is missing");
    }
  }
}

TEST(LoginDocumentTest, HasNoOtherMembers) {
  Document document = loginDocument();
  document["signature"] = "";
  EXPECT_EQ(loginRefusal(document), "400 unknown key \"signature\"");
  EXPECT_EQ(loginRefusal(loginWith("header", "kid", "1")), "400 unknown key \"header.kid\"");
  EXPECT_EQ(loginRefusal(loginWith("payload", "exp", 1)), "400 unknown key \"payload.exp\"");
}

TEST(LoginDocumentTest, HasPartsThatAreObjects) {
  for (const char *part : {"header", "payload"}) {
    Document document = loginDocument();
    document[part] = "eyJ0eXAiOiJKV1QifQ";
    EXPECT_THAT(loginRefusal(document), HasSubstr("must be an object and is \"eyJ0eXAiOiJKV1QifQ\""));
  }
}

TEST(LoginDocumentTest, HasAFixedHeader) {
  EXPECT_EQ(loginRefusal(loginWith("header", "typ", "jwt")),
            "400 \"header.typ\" must be \"JWT\" and is \"jwt\"");
  EXPECT_EQ(loginRefusal(loginWith("header", "alg", "none")),
            "400 \"header.alg\" must be \"HS256\" and is \"none\"");
}

TEST(LoginDocumentTest, HasTextsInItsPayload) {
  for (const char *key : {"iss", "sub", "name"}) {
    for (const Document &wrong : {Document(1), Document(nullptr), Document(true), Document::array({"x"})}) {
      EXPECT_THAT(loginRefusal(loginWith("payload", key, wrong)), HasSubstr(key)) << wrong;
    }
  }
  EXPECT_NE(loginRefusal(loginWith("payload", "sub", "")), "");
}

TEST(LoginDocumentTest, HasOneAudienceWhichIsTheIssuer) {
  const auto refusal = [](const Document &audience) {
    return loginRefusal(loginWith("payload", "aud", audience));
  };
  EXPECT_THAT(refusal("localhost:8443"), HasSubstr("must be an array of one text"));
  EXPECT_THAT(refusal(Document::array()), HasSubstr("must be an array of one text"));
  EXPECT_THAT(refusal(Document::array({1})), HasSubstr("must be an array of one text"));
  EXPECT_THAT(refusal(Document::array({"localhost:8443", "x"})), HasSubstr("must be an array of one text"));
  EXPECT_EQ(
      refusal(Document::array({"other"})),
      "400 \"payload.aud\" must hold the text of \"payload.iss\", \"localhost:8443\", and holds \"other\"");
}

TEST(MessageDocumentTest, IsAcceptedAsTheProtocolHasIt) {
  EXPECT_EQ(messageRefusal(messageDocument()), "");
}

TEST(MessageDocumentTest, MustBeAnArrayOfOneObject) {
  EXPECT_EQ(messageRefusal(messageDocument()[0]), "400 the message must come in an array");
  EXPECT_EQ(messageRefusal(nullptr), "400 the message must come in an array");
  EXPECT_EQ(messageRefusal(Document::array()), "400 the array must hold exactly one message and holds 0");
  const Document message = messageDocument()[0];
  EXPECT_EQ(messageRefusal(Document::array({message, message})),
            "400 the array must hold exactly one message and holds 2");
  EXPECT_EQ(messageRefusal(Document::array({"text"})), "400 the message must be an object");
  EXPECT_EQ(messageRefusal(Document::array({Document::array()})), "400 the message must be an object");
}

TEST(MessageDocumentTest, NeedsTheKeysOfThePublisherAndTheAdvertisingIdentifier) {
  for (const char *key : {"sdkName", "sdkVer", "ips", "id", "eventTime", "ifa"}) {
    Document document = messageDocument();
    document[0].erase(key);
    EXPECT_EQ(messageRefusal(document), "400 the key \"" + std::string(key) + "\" is missing");
  }
}

TEST(MessageDocumentTest, TakesAKeyThatItDoesNotKnow) {
  for (const char *key : {"colour", "", "IFA"}) {
    for (const Document &value : {Document("red"), Document(1), Document(true), Document::array({"a"})}) {
      EXPECT_EQ(messageRefusal(messageWith(key, value)), "") << key << value;
    }
    EXPECT_FALSE(messageRule(key));
  }
  EXPECT_TRUE(messageRule("ifa"));
}

TEST(MessageDocumentTest, NamesAKeyThatItDoesNotKnowAndThatCannotBeALaterOne) {
  EXPECT_EQ(messageRefusal(messageWith("colour", nullptr)), "400 unknown key \"colour\"");
  EXPECT_EQ(messageRefusal(messageWith("colour", Document::object())), "400 unknown key \"colour\"");
  EXPECT_EQ(messageRefusal(messageWith("carrierName", "Example Mobile")), "400 unknown key \"carrierName\"");
}

TEST(MessageDocumentTest, NamesTheKeyTheRuleAndTheWrongValue) {
  EXPECT_EQ(messageRefusal(messageWith("lat", "48.1")), "400 \"lat\" must be a number and is \"48.1\"");
}

/// A key, values that it may have, and values that it may not have.
struct KeyCase {
  const char *key;
  std::vector<Document> good;
  std::vector<Document> bad;
};

std::ostream &operator<<(std::ostream &output, const KeyCase &keyCase) {
  return output << keyCase.key;
}

class MessageKeyTest : public ::testing::TestWithParam<KeyCase> {};

TEST_P(MessageKeyTest, TakesTheValuesOfItsTypeAndNoOthers) {
  const KeyCase &parameter = GetParam();
  for (const Document &value : parameter.good) {
    EXPECT_EQ(messageRefusal(messageWith(parameter.key, value)), "") << value;
  }
  for (const Document &value : parameter.bad) {
    EXPECT_THAT(messageRefusal(messageWith(parameter.key, value)),
                HasSubstr("400 \"" + std::string(parameter.key) + "\" must be "))
        << value;
  }
}

const Document noText[] = {1, 1.5, true, nullptr, Document::array({"x"}), Document::object()};

KeyCase text(const char *key) {
  return {key, {"x", "München", ""}, {std::begin(noText), std::end(noText)}};
}

KeyCase filledText(const char *key) {
  KeyCase keyCase = text(key);
  keyCase.good.pop_back();
  keyCase.bad.emplace_back("");
  return keyCase;
}

KeyCase number(const char *key) {
  return {key,
          {0, -1, 48.137, -1.7976931348623157e308},
          {"1", true, nullptr, Document::array({1}), Document::object()}};
}

std::string nameOf(const ::testing::TestParamInfo<KeyCase> &info) {
  return info.param.key;
}

INSTANTIATE_TEST_SUITE_P(OfTheLibrary, MessageKeyTest,
                         ::testing::Values(filledText("sdkName"), filledText("sdkVer"), filledText("id"),
                                           KeyCase{"ips",
                                                   {Document::array(), Document::array({"10.0.0.1"}),
                                                    Document::array({"10.0.0.1", "192.168.1.2"})},
                                                   {"10.0.0.1", nullptr, Document::object(),
                                                    Document::array({1}), Document::array({"x", nullptr})}},
                                           KeyCase{"eventTime",
                                                   {0, 1700000000000, -1000, 9223372036854775000},
                                                   {1700000000999, 1700000000000.0, "1700000000000", nullptr,
                                                    true, 9223372036854776000u, 18446744073709551000u}}),
                         nameOf);

INSTANTIATE_TEST_SUITE_P(
    OfTheDevice, MessageKeyTest,
    ::testing::Values(
        text("deviceCategory"), text("make"), text("model"), text("platform"), text("osVersion"),
        text("name"), text("userAgent"),
        KeyCase{"ifa",
                {"6D92078A-8246-4BA4-AE5B-76104861E7DC", "0", "00000000000000000000000000000000"},
                {"", "00000000-0000-0000-0000-000000000000", 0, nullptr, Document::array({"x"})}},
        KeyCase{"dnt", {0, 1}, {2, -1, 0.0, 1.0, true, false, "0", nullptr}},
        KeyCase{"languages",
                {Document::array({"de"}), Document::array({"de-DE", "en"})},
                {Document::array(), "de", nullptr, Document::array({1}), Document::array({"de", nullptr})}}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(OfTheSubscription, MessageKeyTest,
                         ::testing::Values(text("carrierCode"), text("radioAccessTechnology")), nameOf);

INSTANTIATE_TEST_SUITE_P(
    OfTheLocation, MessageKeyTest,
    ::testing::Values(number("lat"), number("lon"), number("horizontalAccuracy"), number("altitude"),
                      number("verticalAccuracy"), text("country"), text("state"), text("city"), text("zip"),
                      KeyCase{"tzOffset", {0, 7200, -12600}, {3600.0, "3600", nullptr, true}}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    OfTheConnectionAndTheHost, MessageKeyTest,
    ::testing::Values(KeyCase{"connectionType", {"WIFI", "CELLULAR"}, {"wifi", "", "NONE", 1, nullptr}},
                      text("bundleId"), text("asn")),
    nameOf);

}  // namespace
}  // namespace kx::collector
