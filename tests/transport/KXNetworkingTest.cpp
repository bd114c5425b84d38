#include "KXPublisher/transport/KXNetworking.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

using Service = SimulatedCollectionService;

class KXNetworkingTest : public SimulatedTest {
 protected:
  const Dictionary message{{"ifa", "6D92078A-8246-4BA4-AE5B-76104861E7DC"}};
};

TEST_F(KXNetworkingTest, IsOneInAProcessAndKeepsItsFirstArguments) {
  const auto first = KXNetworking::sharedInstanceWithApiToken("first", "first.example");
  const auto second = KXNetworking::sharedInstanceWithApiToken("second", "second.example");
  EXPECT_EQ(first, second);
  EXPECT_EQ(second->apiToken(), "first");
  EXPECT_EQ(second->hostname(), "first.example");
  device.advance(1);
  ASSERT_EQ(device.service.logins().size(), 1u);
  EXPECT_EQ(device.service.logins()[0].url, "https://first.example/api_v0_0_0/do_login");
}

TEST_F(KXNetworkingTest, StartsItsFirstLoginWhenItIsMade) {
  const auto networking = KXNetworking::initWithApiToken("token", "host");
  EXPECT_EQ(networking->accessToken(), std::nullopt);
  EXPECT_EQ(networking->accessTokenLastUpdated(), 0.0);
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 0.0);
  EXPECT_EQ(networking->accessTokenRequestTimer(), nullptr);
  EXPECT_FALSE(networking->accessTokenWaitingResponse());
  EXPECT_TRUE(device.service.requests.empty());
  device.runReadyTasks();
  EXPECT_EQ(device.service.logins().size(), 1u);
  EXPECT_TRUE(networking->accessTokenWaitingResponse());
}

TEST_F(KXNetworkingTest, SendsNothingEverWithoutAnApiTokenOrAHostName) {
  for (const auto &networking : {KXNetworking::initWithApiToken(std::nullopt, "host"),
                                 KXNetworking::initWithApiToken("token", std::nullopt)}) {
    device.advance(86400);
    EXPECT_TRUE(networking->accessTokenWaitingResponse());
    networking->updateAccessToken(nullptr);
    networking->sendData(message);
    device.advance(86400);
  }
  EXPECT_TRUE(device.service.requests.empty());
  EXPECT_TRUE(device.consoleService.lines.empty());
}

TEST_F(KXNetworkingTest, PassesEmptyArgumentsOnUnchanged) {
  KXNetworking::initWithApiToken("", "host");
  device.advance(1);
  ASSERT_EQ(device.service.logins().size(), 1u);
  EXPECT_THAT(device.service.logins()[0].text().value_or(""), ::testing::HasSubstr("\"sub\":\"\""));
}

TEST_F(KXNetworkingTest, WaitsForEverWhenTheHostNameMakesNoURL) {
  const auto networking = KXNetworking::initWithApiToken("token", "no host");
  device.advance(86400);
  EXPECT_TRUE(networking->accessTokenWaitingResponse());
  EXPECT_TRUE(device.service.requests.empty());
}

TEST_F(KXNetworkingTest, UsesAndFinishesOneSessionARequest) {
  const auto networking = KXNetworking::initWithApiToken("token", "host");
  device.advance(1);
  networking->sendData(message);
  networking->sendData(message);
  device.advance(1);
  EXPECT_EQ(device.urlSessionService.sessions, 3);
  EXPECT_EQ(device.urlSessionService.invalidatedSessions, 3);
}

TEST_F(KXNetworkingTest, FinishesTheSessionEvenWhenNoTaskWasBuilt) {
  KXNetworking::initWithApiToken("token", "no host");
  device.advance(1);
  EXPECT_EQ(device.urlSessionService.sessions, 1);
  EXPECT_EQ(device.urlSessionService.invalidatedSessions, 1);
}

TEST_F(KXNetworkingTest, IsKeptAliveByItsRetryUntilThatHasSucceeded) {
  device.service.script(Service::loginPath, {SimulatedReply::status(500)});
  auto networking = KXNetworking::initWithApiToken("token", "host");
  device.advance(1);
  const std::weak_ptr<KXNetworking> weak = networking;
  networking = nullptr;
  EXPECT_FALSE(weak.expired());
  EXPECT_EQ(device.service.logins().size(), 1u);
  device.advance(300);
  EXPECT_EQ(device.service.logins().size(), 2u);
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace kx
