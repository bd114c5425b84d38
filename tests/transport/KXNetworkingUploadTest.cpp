#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "KXPublisher/transport/KXNetworking.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

using Service = SimulatedCollectionService;
using Lines = std::vector<std::string>;

class KXNetworkingUploadTest : public SimulatedTest {
 protected:
  Service &service = device.service;
  Lines &lines = device.consoleService.lines;
  std::shared_ptr<KXNetworking> networking = KXNetworking::initWithApiToken("api-token", "svc");
  const Dictionary message{{"ifa", "6D92078A-8246-4BA4-AE5B-76104861E7DC"}, {"eventTime", 1700000000000}};

  /// What is logged when one message, sent with a token, is answered so.
  Lines linesAfter(const SimulatedReply &reply) {
    device.advance(1);
    service.script(Service::messagePath, {reply});
    networking->sendData(message);
    device.advance(100);
    return lines;
  }
};

TEST_F(KXNetworkingUploadTest, SendsNothingAndSaysNothingBeforeTheFirstLoginHasSucceeded) {
  device.runReadyTasks();
  const int sessions = device.urlSessionService.sessions;
  networking->sendData(message);
  EXPECT_EQ(device.urlSessionService.sessions, sessions);
  device.advance(100);
  EXPECT_TRUE(service.messages().empty());
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(service.logins().size(), 1u);
}

TEST_F(KXNetworkingUploadTest, SendsTheMessageAsTheOnlyElementOfAnArray) {
  EXPECT_TRUE(linesAfter(SimulatedReply::status(200)).empty());
  ASSERT_EQ(service.messages().size(), 1u);
  const SimulatedRequest request = service.messages()[0];
  EXPECT_EQ(request.url, "https://svc/api_v0_0_0/post_msg");
  EXPECT_EQ(request.header("Authorization"), "Bearer token-1");
  EXPECT_EQ(
      nlohmann::json::parse(request.text().value_or("")),
      nlohmann::json::parse(R"([{"ifa":"6D92078A-8246-4BA4-AE5B-76104861E7DC","eventTime":1700000000000}])"));
}

TEST_F(KXNetworkingUploadTest, SendsATokenThatArrivesWhileTheMessageIsPrepared) {
  device.advance(1);
  service.revokeTokens();
  device.urlSessionService.whileNextSessionIsMade = [this] {
    networking->updateAccessToken(nullptr);
    device.advance(1);
  };
  networking->sendData(message);
  device.advance(1);
  ASSERT_EQ(service.messages().size(), 1u);
  EXPECT_EQ(service.messages()[0].header("Authorization"), "Bearer token-2");
  EXPECT_EQ(service.logins().size(), 2u);
  EXPECT_TRUE(lines.empty());
}

TEST_F(KXNetworkingUploadTest, StartsTheUploadBeforeItReturns) {
  device.advance(1);
  networking->sendData(message);
  EXPECT_EQ(service.messages().size(), 1u);
}

TEST_F(KXNetworkingUploadTest, SaysNothingOfASuccess) {
  for (const long status : {200L, 204L, 299L})
    EXPECT_TRUE(linesAfter(SimulatedReply::status(status)).empty());
  EXPECT_EQ(service.logins().size(), 1u);
}

TEST_F(KXNetworkingUploadTest, LogsEachOtherStatusAndKeepsTheToken) {
  for (const long status : {199L, 300L, 401L, 404L, 500L, 503L}) {
    lines.clear();
    EXPECT_EQ(linesAfter(SimulatedReply::status(status)),
              (Lines{"[KX Error] Error sending data. HTTP status: " + std::to_string(status)}));
  }
  EXPECT_EQ(service.logins().size(), 1u);
}

TEST_F(KXNetworkingUploadTest, AsksForANewTokenWhenItsTokenIsRefused) {
  EXPECT_EQ(linesAfter(SimulatedReply::status(403)),
            (Lines{"[KX Error] Error sending data. Calling updateAccessToken:"}));
  EXPECT_EQ(service.logins().size(), 2u);
  networking->sendData(message);
  EXPECT_EQ(service.messages().back().header("Authorization"), "Bearer token-2");
}

TEST_F(KXNetworkingUploadTest, LogsTwoLinesForAFailureOfTheTransport) {
  EXPECT_EQ(linesAfter(SimulatedReply::failure("connection lost")),
            (Lines{"[KX Error] Error sending data: Error Domain=simulated Code=-1 \"connection lost\"",
                   "[KX Error] Error sending data. HTTP status: 0"}));
  EXPECT_EQ(service.logins().size(), 1u);
}

TEST_F(KXNetworkingUploadTest, TakesAnErrorBesideARefusalForAFailureOfTheTransport) {
  SimulatedReply reply = SimulatedReply::status(403);
  reply.error = Error{"simulated", -1, "connection lost"};
  reply.answersToo = true;
  EXPECT_EQ(linesAfter(reply),
            (Lines{"[KX Error] Error sending data: Error Domain=simulated Code=-1 \"connection lost\"",
                   "[KX Error] Error sending data. HTTP status: 0"}));
  EXPECT_EQ(service.logins().size(), 1u);
}

TEST_F(KXNetworkingUploadTest, TakesAnAnswerThatIsNotHTTPForAFailure) {
  SimulatedReply reply;
  reply.isHTTP = false;
  EXPECT_EQ(linesAfter(reply), (Lines{"[KX Error] Error sending data. HTTP status: 0"}));
}

TEST_F(KXNetworkingUploadTest, NeverRepeatsAMessage) {
  for (const SimulatedReply &reply : {SimulatedReply::status(500), SimulatedReply::status(403),
                                      SimulatedReply::failure("lost"), SimulatedReply::silence()}) {
    linesAfter(reply);
  }
  device.advance(86400);
  EXPECT_EQ(service.messages().size(), 4u);
}

TEST_F(KXNetworkingUploadTest, DropsAMessageThatCannotBeSerialisedWithoutALine) {
  device.advance(1);
  networking->sendData({{"ifa", "\xff"}});
  device.advance(1);
  EXPECT_TRUE(service.messages().empty());
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(device.urlSessionService.invalidatedSessions, 2);
}

TEST_F(KXNetworkingUploadTest, LetsUploadsOverlap) {
  device.advance(1);
  SimulatedReply slow;
  slow.latency = 50;
  service.script(Service::messagePath, {slow});
  networking->sendData(message);
  networking->sendData(message);
  networking->sendData(message);
  EXPECT_EQ(service.messages().size(), 3u);
}

TEST_F(KXNetworkingUploadTest, StaysAliveUntilTheUploadHasEnded) {
  device.advance(1);
  service.script(Service::messagePath, {SimulatedReply::status(500)});
  networking->sendData(message);
  const std::weak_ptr<KXNetworking> weak = networking;
  networking = nullptr;
  EXPECT_FALSE(weak.expired());
  device.advance(1);
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(lines.size(), 1u);
}

}  // namespace
}  // namespace kx
