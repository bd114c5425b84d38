#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/tools/collector/Requests.h"
#include "tools/collector/CollectionService.h"

namespace kx::collector {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::HasSubstr;

class CollectionServiceTest : public ::testing::Test {
 protected:
  CollectionServiceSettings settings;
  std::chrono::steady_clock::time_point now{};

  Answer receive(const Request &request) {
    if (!service_) service_.emplace(settings);
    return service_->receive(request, now);
  }

  std::string logIn() { return receive(loginRequest()).accessToken.value_or("no token"); }

  void expectRefusal(const Request &request, unsigned status, const std::string &reason) {
    const Answer answer = receive(request);
    EXPECT_EQ(answer.status, status);
    EXPECT_THAT(answer.reason, HasSubstr(reason));
    EXPECT_FALSE(answer.accessToken);
    EXPECT_FALSE(answer.drop);
  }

 private:
  std::optional<CollectionService> service_;
};

TEST_F(CollectionServiceTest, ALoginIsAnsweredWithAnAccessToken) {
  const Answer answer = receive(loginRequest());
  EXPECT_EQ(answer.endpoint, Endpoint::login);
  EXPECT_EQ(answer.status, 200u);
  EXPECT_EQ(answer.reason, "");
  ASSERT_TRUE(answer.accessToken);
  EXPECT_EQ(answer.accessToken->size(), 32u);
  EXPECT_EQ(answer.document, loginDocument());
  EXPECT_EQ(answer.delay, milliseconds(0));
  EXPECT_FALSE(answer.drop);
}

TEST_F(CollectionServiceTest, AMessageWithThatTokenIsAccepted) {
  const Answer answer = receive(messageRequest(logIn()));
  EXPECT_EQ(answer.endpoint, Endpoint::message);
  EXPECT_EQ(answer.status, 200u);
  EXPECT_EQ(answer.reason, "");
  EXPECT_FALSE(answer.accessToken);
  EXPECT_EQ(answer.wholeDocument(), messageDocument());
}

TEST_F(CollectionServiceTest, ATokenIsGoodForManyMessagesAndBesideLaterOnes) {
  const std::string first = logIn();
  const std::string second = logIn();
  EXPECT_NE(first, second);
  for (const std::string &token : {first, second, first}) {
    EXPECT_EQ(receive(messageRequest(token)).status, 200u);
  }
}

TEST_F(CollectionServiceTest, KnowsTwoPathsAndTheseExactly) {
  for (const char *target :
       {"/", "", "*", "/api_v0_0_0/do_login/", "/api_v0_0_0/do_login?x=1", "//api_v0_0_0/do_login",
        "/API_v0_0_0/do_login", "/api_v0_0_0/%64o_login", "https://h/api_v0_0_0/do_login"}) {
    Request request = loginRequest();
    request.target = target;
    expectRefusal(request, 404, std::string("there is no endpoint \"") + target + "\"");
    EXPECT_EQ(receive(request).endpoint, Endpoint::unknown);
  }
}

TEST_F(CollectionServiceTest, TakesNothingButPosts) {
  for (const char *method :
       {"GET", "HEAD", "PUT", "DELETE", "OPTIONS", "PATCH", "post", "Post", "POSTS", ""}) {
    Request login = loginRequest();
    login.method = method;
    expectRefusal(login, 405, std::string("the method must be POST and is \"") + method + "\"");
    Request message = messageRequest(logIn());
    message.method = method;
    expectRefusal(message, 405, "the method must be POST");
  }
}

TEST_F(CollectionServiceTest, WantsTheContentTypeExactly) {
  const std::string token = logIn();
  for (Request request : {loginRequest(), messageRequest(token)}) {
    for (const char *value : {"", "text/json", "Application/JSON", "application/json; charset=utf-8"}) {
      setField(request, "Content-Type", value);
      expectRefusal(request, 415, "the header Content-Type must be application/json and is ");
    }
    removeField(request, "Content-Type");
    expectRefusal(request, 415, "the header Content-Type is missing");
    request.fields.emplace_back("Content-Type", "application/json");
    request.fields.emplace_back("content-type", "application/json");
    expectRefusal(request, 415, "the header Content-Type is there more than once");
  }
}

TEST_F(CollectionServiceTest, WantsTheContentEncodingExactly) {
  const std::string token = logIn();
  for (Request request : {loginRequest(), messageRequest(token)}) {
    for (const char *value : {"", "x-gzip", "deflate", "gzip, gzip", "GZIP"}) {
      setField(request, "Content-Encoding", value);
      expectRefusal(request, 415, "the header Content-Encoding must be gzip and is ");
    }
    removeField(request, "Content-Encoding");
    expectRefusal(request, 415, "the header Content-Encoding is missing");
    request.fields.emplace_back("Content-Encoding", "gzip");
    request.fields.emplace_back("CONTENT-ENCODING", "gzip");
    expectRefusal(request, 415, "the header Content-Encoding is there more than once");
  }
}

TEST_F(CollectionServiceTest, NamesOfHeadersAreTakenInAnyCase) {
  Request request = loginRequest();
  for (auto &[name, value] : request.fields) {
    for (char &character : name) character = static_cast<char>(tolower(character));
  }
  EXPECT_EQ(receive(request).status, 200u);
}

TEST_F(CollectionServiceTest, ALoginCarriesNoAuthorization) {
  Request request = loginRequest();
  request.fields.emplace_back("authorization", "");
  expectRefusal(request, 400, "a login must not carry the header Authorization");
}

TEST_F(CollectionServiceTest, AMessageWithoutAKnownTokenMakesTheClientLogInAgain) {
  const std::string token = logIn();
  Request request = messageRequest("unknown");
  expectRefusal(request, 403, "the access token is unknown or has expired");
  for (const std::string &value :
       {token, "bearer " + token, "Bearer" + token, "Basic " + token, std::string(), std::string("Bearer")}) {
    setField(request, "Authorization", value);
    expectRefusal(request, 403,
                  "the header Authorization must be \"Bearer\", one blank and the access token");
  }
  for (const std::string &value : {"Bearer  " + token, "Bearer " + token + "x", std::string("Bearer ")}) {
    setField(request, "Authorization", value);
    expectRefusal(request, 403, "the access token is unknown or has expired");
  }
  removeField(request, "Authorization");
  expectRefusal(request, 403, "the header Authorization is missing");
}

TEST_F(CollectionServiceTest, AMessageCarriesItsTokenOnce) {
  const std::string token = logIn();
  Request request = messageRequest(token);
  request.fields.emplace_back("Authorization", "Bearer " + token);
  expectRefusal(request, 403, "the header Authorization is there more than once");
}

TEST_F(CollectionServiceTest, ATokenExpiresWhenItIsToldTo) {
  settings.tokenLifetime = milliseconds(1500);
  const std::string token = logIn();
  now += milliseconds(1499);
  EXPECT_EQ(receive(messageRequest(token)).status, 200u);
  now += milliseconds(1);
  expectRefusal(messageRequest(token), 403, "the access token is unknown or has expired");
  EXPECT_EQ(receive(messageRequest(logIn())).status, 200u);
}

TEST_F(CollectionServiceTest, TooManyLoginsPushOutTheOldestToken) {
  settings.maximumTokens = 3;
  const std::string token = logIn();
  logIn();
  logIn();
  EXPECT_EQ(receive(messageRequest(token)).status, 200u);
  logIn();
  EXPECT_EQ(receive(messageRequest(token)).status, 403u);
}

TEST_F(CollectionServiceTest, TheBodyIsOneGzipMember) {
  Request request = loginRequest();
  request.body = loginDocument().dump();
  expectRefusal(request, 400, "the body is not a gzip member");
  request.body = "";
  expectRefusal(request, 400, "the body is empty");
  request.body = gzip(loginDocument().dump()) + gzip("");
  expectRefusal(request, 400, "is followed by 20 more bytes");
}

TEST_F(CollectionServiceTest, TheBodyIsBoundedPackedAndUnpacked) {
  settings.maximumBodySize = 1000;
  Request request = loginRequest();
  request.body = std::string(1001, 'x');
  expectRefusal(request, 413, "the body has more than 1000 bytes");
  request.body = gzip(std::string(1001, ' '));
  expectRefusal(request, 413, "the body unpacks to more than 1000 bytes");
  request.body = gzip(std::string(1000, ' '));
  expectRefusal(request, 400, "the body is not JSON text");
}

TEST_F(CollectionServiceTest, EachEndpointHoldsTheDocumentAgainstItsOwnRules) {
  expectRefusal(loginRequest(messageDocument()), 400, "the login document must be an object");
  expectRefusal(messageRequest(logIn(), loginDocument()), 400, "the message must come in an array");
}

TEST_F(CollectionServiceTest, ARefusalShowsWhatHasArrivedAsFarAsItCouldBeRead) {
  Document document = messageDocument();
  document[0]["colour"] = nullptr;
  const Answer answer = receive(messageRequest(logIn(), document));
  EXPECT_EQ(answer.status, 400u);
  EXPECT_EQ(answer.reason, "unknown key \"colour\"");
  EXPECT_EQ(answer.document, document);
  EXPECT_FALSE(receive(messageRequest("unknown")).document);
}

/// The same text, a few bytes of which are others, missing or repeated.
std::string damaged(std::string text, std::mt19937 &random) {
  const auto below = [&random](std::size_t bound) { return random() % bound; };
  for (std::size_t count = 1 + below(4); count > 0 && !text.empty(); --count) {
    const std::size_t at = below(text.size());
    switch (below(4)) {
      case 0:
        text[at] = static_cast<char>(below(256));
        break;
      case 1:
        text.erase(at, 1 + below(8));
        break;
      case 2:
        text.insert(at, text.substr(below(text.size()), 1 + below(8)));
        break;
      default:
        text[at] = "{}[]\",:0\\"[below(9)];
    }
  }
  return text;
}

TEST_F(CollectionServiceTest, WhateverTheBodyHoldsItIsTakenOrRefused) {
  std::mt19937 random(20240229);
  const std::string token = logIn();
  for (int count = 0; count < 5000; ++count) {
    Request login = loginRequest();
    Request message = messageRequest(token);
    const bool packed = random() % 2 == 0;  // whether the gzip member is damaged, or what is in it
    login.body = packed ? damaged(login.body, random) : gzip(damaged(loginDocument().dump(), random));
    message.body = packed ? damaged(message.body, random) : gzip(damaged(messageDocument().dump(), random));
    for (const Request &request : {login, message}) {
      const Answer answer = receive(request);
      EXPECT_EQ(answer.reason.empty(), answer.status == 200) << answer.reason;
      EXPECT_THAT(answer.status, ::testing::AnyOf(200, 400, 413)) << answer.reason;
      EXPECT_EQ(answer.reason.find_first_of("\x1B\x7F"), std::string::npos) << answer.reason;
    }
  }
}

TEST_F(CollectionServiceTest, WhatIsRefusedIsQuotedWithoutControlCharacters) {
  Request request = loginRequest();
  request.target = "/\x1B[31m";
  expectRefusal(request, 404, R"(there is no endpoint "/\u001b[31m")");
}

TEST_F(CollectionServiceTest, AnEndpointAnswersWithTheStatusThatItIsToldTo) {
  settings.message.status = 503;
  const std::string token = logIn();
  for (int count = 0; count < 3; ++count) expectRefusal(messageRequest(token), 503, "told to answer so");
}

TEST_F(CollectionServiceTest, AnEndpointAnswersSoForAsManyRequestsAsItIsToldTo) {
  settings.login.status = 500;
  settings.login.statusCount = 2;
  expectRefusal(loginRequest(), 500, "told to answer so");
  expectRefusal(loginRequest(), 500, "told to answer so");
  EXPECT_EQ(receive(messageRequest(logIn())).status, 200u);
}

TEST_F(CollectionServiceTest, OnlyRequestsThatWouldBeAcceptedAreAnsweredSo) {
  settings.login.status = 500;
  settings.login.statusCount = 1;
  expectRefusal(loginRequest(messageDocument()), 400, "the login document must be an object");
  expectRefusal(loginRequest(), 500, "told to answer so");
  EXPECT_EQ(receive(loginRequest()).status, 200u);
}

TEST_F(CollectionServiceTest, ALoginThatIsToldToSucceedWithAStatusCarriesNoToken) {
  settings.login.status = 200;
  const Answer answer = receive(loginRequest());
  EXPECT_EQ(answer.status, 200u);
  EXPECT_FALSE(answer.accessToken);
}

TEST_F(CollectionServiceTest, AnEndpointHoldsItsAnswersBack) {
  settings.message.delay = milliseconds(250);
  const std::string token = logIn();
  EXPECT_EQ(receive(loginRequest()).delay, milliseconds(0));
  EXPECT_EQ(receive(messageRequest(token)).delay, milliseconds(250));
  EXPECT_EQ(receive(messageRequest("unknown")).delay, milliseconds(250));
}

TEST_F(CollectionServiceTest, AnEndpointDropsItsConnections) {
  settings.login.drop = true;
  const Answer answer = receive(loginRequest());
  EXPECT_TRUE(answer.drop);
  EXPECT_FALSE(answer.accessToken);
  EXPECT_EQ(answer.document, loginDocument());
  EXPECT_FALSE(receive(messageRequest("unknown")).drop);
}

}  // namespace
}  // namespace kx::collector
