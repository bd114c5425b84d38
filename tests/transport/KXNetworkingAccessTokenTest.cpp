#include <algorithm>
#include <string>
#include <vector>

#include "KXPublisher/transport/KXNetworking.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

using Service = SimulatedCollectionService;
using Lines = std::vector<std::string>;

class KXNetworkingAccessTokenTest : public SimulatedTest {
 protected:
  Service &service = device.service;
  Lines &lines = device.consoleService.lines;
  std::shared_ptr<KXNetworking> networking;
  const Dictionary message{{"text", std::string(200, 'a')}};

  /// A client after its first login, which ended with these answers, one an attempt.
  void start(std::vector<SimulatedReply> replies = {}) {
    service.script(Service::loginPath, std::move(replies));
    networking = KXNetworking::initWithApiToken("api-token", "svc:8443");
    device.advance(1);
  }
  std::vector<double> loginTimes() const {
    std::vector<double> times;
    for (const auto &login : service.logins()) times.push_back(login.time);
    return times;
  }
  void requestRefresh() {
    networking->updateAccessToken(nullptr);
    device.runReadyTasks();
  }
};

TEST_F(KXNetworkingAccessTokenTest, SendsTheLoginDocument) {
  start();
  EXPECT_EQ(
      service.logins()[0].text(),
      R"({"header":{"typ":"JWT","alg":"HS256"},)"
      R"("payload":{"aud":["svc:8443"],"iss":"svc:8443","sub":"api-token","name":"iOS.com.example.Host"}})");
  EXPECT_EQ(service.logins()[0].header("Authorization"), std::nullopt);
}

TEST_F(KXNetworkingAccessTokenTest, NamesWhatIsUnknownWithEmptyText) {
  device.device->systemNameText = std::nullopt;
  device.bundle->identifier = std::nullopt;
  start();
  EXPECT_THAT(service.logins()[0].text().value_or(""), ::testing::HasSubstr("\"name\":\".\""));
}

TEST_F(KXNetworkingAccessTokenTest, NamesTheHostAloneWithoutADevice) {
  device.device->present = false;
  start();
  EXPECT_THAT(service.logins()[0].text().value_or(""),
              ::testing::HasSubstr("\"name\":\".com.example.Host\""));
}

TEST_F(KXNetworkingAccessTokenTest, NamesTheSystemAloneWithoutAMainBundle) {
  device.bundle->present = false;
  start();
  EXPECT_THAT(service.logins()[0].text().value_or(""), ::testing::HasSubstr("\"name\":\"iOS.\""));
}

TEST_F(KXNetworkingAccessTokenTest, HoldsTheTokenAsItWasReceived) {
  start({SimulatedReply::token("  Bearer a+b/c==  ")});
  EXPECT_EQ(networking->accessToken(), "  Bearer a+b/c==  ");
  EXPECT_DOUBLE_EQ(networking->accessTokenLastUpdated(), 1700000000.1);
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 0.0);
  EXPECT_FALSE(networking->accessTokenWaitingResponse());
  EXPECT_EQ(networking->accessTokenRequestTimer(), nullptr);
  EXPECT_TRUE(lines.empty());
}

TEST_F(KXNetworkingAccessTokenTest, TakesEverySuccessStatus) {
  SimulatedReply reply = SimulatedReply::token("token");
  reply.statusCode = 299;
  start({reply});
  EXPECT_EQ(networking->accessToken(), "token");
}

TEST_F(KXNetworkingAccessTokenTest, LogsInOnceForRequestsInQuickSuccession) {
  start();
  for (int i = 0; i < 3; ++i) networking->updateAccessToken(nullptr);
  device.advance(10);
  EXPECT_EQ(service.logins().size(), 2u);
}

TEST_F(KXNetworkingAccessTokenTest, LogsInOnceForRequestsInQuickSuccessionThatAreAnsweredAtOnce) {
  start();
  device.service.latency = 0;
  for (int request = 0; request < 3; ++request) networking->updateAccessToken(nullptr);
  device.runReadyTasks();
  EXPECT_EQ(service.logins().size(), 2u);
}

TEST_F(KXNetworkingAccessTokenTest, RetriesWhileTheUserScrolls) {
  device.runLoopService.setTracking(true);
  start({SimulatedReply::status(500)});
  device.advance(300);
  EXPECT_EQ(service.logins().size(), 2u);
}

TEST_F(KXNetworkingAccessTokenTest, TakesAnEmptyTokenForOne) {
  start({SimulatedReply::token("")});
  EXPECT_EQ(networking->accessToken(), "");
  networking->sendData(message);
  ASSERT_EQ(service.messages().size(), 1u);
  EXPECT_EQ(service.messages()[0].header("Authorization"), "Bearer ");
}

TEST_F(KXNetworkingAccessTokenTest, IgnoresRequestsWhileALoginIsOutstanding) {
  start({SimulatedReply::token("first")});
  SimulatedReply slow = SimulatedReply::token("second");
  slow.latency = 30;
  service.script(Service::loginPath, {slow});
  requestRefresh();
  for (int i = 0; i < 5; ++i) {
    device.advance(5);
    requestRefresh();
  }
  EXPECT_EQ(service.logins().size(), 2u);
  device.advance(3600);  // and none is made up for when it ends
  EXPECT_EQ(service.logins().size(), 2u);
  EXPECT_EQ(networking->accessToken(), "second");
}

TEST_F(KXNetworkingAccessTokenTest, IgnoresARequestOlderThanTheToken) {
  start();
  device.clockService.atSwitchOn -= 3600;  // the clock is set back
  requestRefresh();
  EXPECT_EQ(service.logins().size(), 1u);
}

TEST_F(KXNetworkingAccessTokenTest, ServesARequestAsOldAsTheToken) {
  start();
  device.clockService.atSwitchOn =
      networking->accessTokenLastUpdated() - device.scheduler.uptime();  // the same moment, to the bit
  ASSERT_EQ(device.clock().timeIntervalSince1970(), networking->accessTokenLastUpdated());
  requestRefresh();
  EXPECT_EQ(service.logins().size(), 2u);
}

TEST_F(KXNetworkingAccessTokenTest, IgnoresARequestThatATokenOvertakesBeforeItsDecision) {
  start();
  SimulatedReply slow = SimulatedReply::token("overtaking");
  slow.latency = 5;
  service.script(Service::loginPath, {slow});
  device.scheduler.after(5, device.scheduler.mainQueue(), [this] {
    networking->updateAccessToken(nullptr);  // asked for before the token arrives, decided after it
    device.clockService.atSwitchOn += 1;
  });
  requestRefresh();
  device.advance(60);
  EXPECT_EQ(networking->accessToken(), "overtaking");
  EXPECT_EQ(service.logins().size(), 2u);
}

TEST_F(KXNetworkingAccessTokenTest, BacksOffFromFiveMinutesToAnHour) {
  start(std::vector<SimulatedReply>(8, SimulatedReply::status(500)));
  device.advance(5 * 3600);
  const std::vector<double> times = loginTimes();
  std::vector<double> delays;
  // Each delay counts from the failure, which comes 0.1 s after the request.
  for (std::size_t i = 1; i < times.size(); ++i) delays.push_back(times[i] - times[i - 1] - 0.1);
  ASSERT_GE(delays.size(), 7u);
  const std::vector<double> expected{300, 600, 1200, 2400, 3600, 3600, 3600};
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(delays[i], expected[i], 1e-6) << i;
}

TEST_F(KXNetworkingAccessTokenTest, RetriesWithoutEnd) {
  service.respond = [](const SimulatedRequest &) { return SimulatedReply::status(503); };
  start();
  device.advance(30 * 86400.0);
  EXPECT_GT(service.logins().size(), 700u);
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 3600.0);
}

TEST_F(KXNetworkingAccessTokenTest, StartsItsDelaysAgainAfterASuccess) {
  start({SimulatedReply::status(500), SimulatedReply::status(500)});
  device.advance(300 + 600 + 1);
  EXPECT_EQ(networking->accessToken(), "token-1");
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 0.0);
  service.script(Service::loginPath, {SimulatedReply::status(500)});
  requestRefresh();
  device.advance(1);
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 300.0);
}

TEST_F(KXNetworkingAccessTokenTest, IgnoresRequestsWhileARetryIsPending) {
  start({SimulatedReply::status(500)});
  for (int i = 0; i < 29; ++i) {
    device.advance(10);
    requestRefresh();
  }
  EXPECT_EQ(service.logins().size(), 1u);
  device.advance(20);
  EXPECT_EQ(service.logins().size(), 2u);
}

TEST_F(KXNetworkingAccessTokenTest, RetriesOnTheMainRunLoopWithATimerThatIsInvalidOnceItFired) {
  start({SimulatedReply::status(500)});
  const auto retry = networking->accessTokenRequestTimer();
  ASSERT_NE(retry, nullptr);
  EXPECT_TRUE(retry->isValid());
  device.advance(300);
  EXPECT_FALSE(retry->isValid());
  EXPECT_EQ(networking->accessTokenRequestTimer(), retry);
}

TEST_F(KXNetworkingAccessTokenTest, KeepsTheOldTokenUntilANewOneArrives) {
  start();
  service.script(Service::loginPath, {SimulatedReply::status(500)});
  requestRefresh();
  device.advance(1);
  EXPECT_EQ(networking->accessToken(), "token-1");
  device.advance(300);
  EXPECT_EQ(networking->accessToken(), "token-2");
}

TEST_F(KXNetworkingAccessTokenTest, HasNoTokenAfterAFailedFirstLogin) {
  start({SimulatedReply::status(401)});
  EXPECT_EQ(networking->accessToken(), std::nullopt);
  networking->sendData(message);
  device.advance(1);
  EXPECT_TRUE(service.messages().empty());
  device.advance(300);
  networking->sendData(message);
  device.advance(1);
  EXPECT_EQ(service.messages().size(), 1u);
}

TEST_F(KXNetworkingAccessTokenTest, LogsAFailureOfTheTransport) {
  start({SimulatedReply::failure("no route to host")});
  EXPECT_EQ(
      lines,
      (Lines{"[KX Error] Error getting access token: Error Domain=simulated Code=-1 \"no route to host\""}));
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 300.0);
}

TEST_F(KXNetworkingAccessTokenTest, TakesAnErrorBesideAnAnswerForAFailure) {
  SimulatedReply reply = SimulatedReply::token("unused");
  reply.error = Error{"simulated", -1, "cut off"};
  reply.answersToo = true;
  start({reply});
  EXPECT_EQ(lines,
            (Lines{"[KX Error] Error getting access token: Error Domain=simulated Code=-1 \"cut off\""}));
  EXPECT_EQ(networking->accessToken(), std::nullopt);
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 300.0);
}

TEST_F(KXNetworkingAccessTokenTest, LogsAnAnswerThatIsNoSuccess) {
  for (const long status : {199L, 300L, 403L, 500L}) {
    lines.clear();
    SimulatedReply reply = SimulatedReply::token("unused");
    reply.statusCode = status;
    start({reply});
    EXPECT_EQ(lines, (Lines{"[KX Error] Error getting token. HTTP status: " + std::to_string(status)}));
    EXPECT_EQ(networking->accessToken(), std::nullopt);
  }
}

TEST_F(KXNetworkingAccessTokenTest, TakesASuccessWithoutATokenForAFailure) {
  SimulatedReply reply = SimulatedReply::status(204);
  reply.headerFields = {{"Date", "today"}, {"X-Other", "1"}};
  start({reply});
  EXPECT_EQ(lines,
            (Lines{"[KX Error] getAccessToken received success status code 204, but no access token found. "
                   "Headers: {\"Date\":\"today\",\"X-Other\":\"1\"}"}));
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 300.0);
}

TEST_F(KXNetworkingAccessTokenTest, FindsTheTokensHeaderWhateverItsCase) {
  SimulatedReply reply;
  reply.headerFields = {{"SET-authorization", "token"}};
  start({reply});
  EXPECT_EQ(networking->accessToken(), "token");
}

TEST_F(KXNetworkingAccessTokenTest, TakesAnAnswerThatIsNotHTTPForASilentFailure) {
  SimulatedReply reply;
  reply.isHTTP = false;
  start({reply});
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(networking->accessToken(), std::nullopt);
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 300.0);
}

TEST_F(KXNetworkingAccessTokenTest, BacksOffWhenTheServiceNeverAnswers) {
  start({SimulatedReply::silence()});
  EXPECT_TRUE(networking->accessTokenWaitingResponse());
  device.advance(60);
  EXPECT_FALSE(networking->accessTokenWaitingResponse());
  device.advance(300);
  EXPECT_EQ(networking->accessToken(), "token-1");
}

TEST_F(KXNetworkingAccessTokenTest, ReportsALoginsOutcomeExactlyOnce) {
  start();
  std::vector<std::optional<std::string>> outcomes;
  const auto record = [&](const std::optional<std::string> &token) { outcomes.push_back(token); };
  networking->getAccessTokenWithCompletionHandler(record);
  service.script(Service::loginPath, {});
  device.advance(1);
  service.script(Service::loginPath, {SimulatedReply::status(500)});
  networking->getAccessTokenWithCompletionHandler(record);
  device.advance(1);
  EXPECT_EQ(outcomes, (std::vector<std::optional<std::string>>{"token-2", std::nullopt}));
}

TEST_F(KXNetworkingAccessTokenTest, LogsInOnceForAHundredRefusedMessages) {
  start();
  service.revokeTokens();
  for (int i = 0; i < 100; ++i) networking->sendData(message);
  device.advance(10);
  EXPECT_EQ(service.messages().size(), 100u);
  EXPECT_EQ(service.logins().size(), 2u);
  EXPECT_EQ(lines.size(), 100u);
  EXPECT_EQ(networking->accessToken(), "token-2");
}

TEST_F(KXNetworkingAccessTokenTest, StartsNoLoginForARefusalDuringTheBackOff) {
  start();
  service.revokeTokens();
  service.script(Service::loginPath, {SimulatedReply::status(500)});
  networking->sendData(message);
  device.advance(10);
  EXPECT_EQ(service.logins().size(), 2u);
  networking->sendData(message);  // with the old token: refused again
  device.advance(280);
  EXPECT_EQ(service.messages().size(), 2u);
  EXPECT_EQ(service.logins().size(), 2u);
  device.advance(20);
  EXPECT_EQ(service.logins().size(), 3u);
}

}  // namespace
}  // namespace kx
