#include <stdexcept>
#include <string>
#include <vector>

#include "KXPublisher/transport/KXNetworking.h"
#include "tests/support/FailingDispatch.h"
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

TEST_F(KXNetworkingTest, AsksAgainWithTheNextMessageForATokenThatCouldNotBeAskedFor) {
  device.urlSessionService.whileNextSessionIsMade = [] { throw std::runtime_error("no session"); };
  const auto networking = KXNetworking::initWithApiToken("token", "svc");
  device.advance(3600);
  EXPECT_TRUE(device.service.requests.empty());
  EXPECT_FALSE(networking->accessTokenWaitingResponse());
  EXPECT_EQ(device.consoleService.lines,
            (std::vector<std::string>{"[KX Error] An exception ended a task: no session"}));
  networking->sendData({{"message", 1}});
  device.advance(1);
  EXPECT_EQ(device.service.logins().size(), 1u);
  EXPECT_TRUE(device.service.messages().empty());
  networking->sendData({{"message", 2}});
  device.advance(1);
  EXPECT_EQ(device.service.messages().size(), 1u);
  EXPECT_EQ(device.service.logins().size(), 1u);
}

TEST_F(KXNetworkingTest, AsksAgainWithTheNextMessageForATokenThatNoWorkerAskedFor) {
  const auto dispatch = std::make_shared<FailingDispatch>(device.scheduler);
  device.replaced.dispatch = dispatch;
  const auto networking = KXNetworking::initWithApiToken("token", "svc");
  dispatch->fails = false;
  device.advance(3600);
  EXPECT_TRUE(device.service.requests.empty());
  networking->sendData({{"message", 1}});
  device.advance(1);
  EXPECT_NE(networking->accessToken(), std::nullopt);
}

TEST_F(KXNetworkingTest, FinishesTheSessionWhenARequestCannotBeStarted) {
  class NoTasks : public URLSession {
   public:
    explicit NoTasks(int &finished) : finished_(finished) {}
    std::shared_ptr<URLSessionUploadTask> uploadTaskWithRequest(const URLRequest &, std::optional<Data>,
                                                                CompletionHandler) override {
      throw std::runtime_error("no task");
    }
    void finishTasksAndInvalidate() override { ++finished_; }

   private:
    int &finished_;
  };
  class NoTaskSessions : public URLSessionService {
   public:
    explicit NoTaskSessions(URLSessionService &service) : service_(service) {}
    std::optional<URL> URLWithString(const std::string &text) override {
      return service_.URLWithString(text);
    }
    std::shared_ptr<URLSession> sessionWithDefaultConfiguration() override {
      return std::make_shared<NoTasks>(finished);
    }
    int finished = 0;

   private:
    URLSessionService &service_;
  };
  const auto networking = KXNetworking::initWithApiToken("token", "svc");
  device.advance(1);
  const auto sessions = std::make_shared<NoTaskSessions>(device.urlSessionService);
  device.replaced.urlSessions = sessions;
  EXPECT_THROW(networking->sendData({{"message", 1}}), std::runtime_error);
  EXPECT_EQ(sessions->finished, 1);
  networking->updateAccessToken(nullptr);
  device.runReadyTasks();
  EXPECT_EQ(sessions->finished, 2);
}

TEST_F(KXNetworkingTest, HasAReaderAndASetterForEachProperty) {
  const auto networking = KXNetworking::initWithApiToken("token", "svc");
  device.advance(1);
  networking->setApiToken("other");
  EXPECT_EQ(networking->apiToken(), "other");
  networking->setHostname("host");
  EXPECT_EQ(networking->hostname(), "host");
  networking->setAccessToken("mine");
  EXPECT_EQ(networking->accessToken(), "mine");
  networking->setAccessTokenLastUpdated(5);
  EXPECT_EQ(networking->accessTokenLastUpdated(), 5);
  networking->setLastAccessTokenRequestTimeInterval(600);
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 600);
  networking->setAccessTokenWaitingResponse(true);
  EXPECT_TRUE(networking->accessTokenWaitingResponse());
  networking->setAccessTokenWaitingResponse(false);
  device.service.script(SimulatedCollectionService::loginPath, {SimulatedReply::status(500)});
  networking->updateAccessToken(nullptr);
  device.advance(1);
  const auto timer = networking->accessTokenRequestTimer();
  ASSERT_NE(timer, nullptr);
  EXPECT_EQ(networking->lastAccessTokenRequestTimeInterval(), 1200);
  networking->setAccessTokenRequestTimer(nullptr);
  EXPECT_EQ(networking->accessTokenRequestTimer(), nullptr);
  timer->invalidate();

  const auto queue = networking->accessTokenOperationQueue();
  ASSERT_NE(queue, nullptr);
  networking->setAccessTokenOperationQueue(nullptr);
  networking->updateAccessToken(nullptr);  // nobody decides it
  device.advance(1);
  EXPECT_EQ(device.service.logins().size(), 2u);
  networking->setAccessTokenOperationQueue(queue);
  networking->updateAccessToken(nullptr);
  device.advance(1);
  EXPECT_EQ(device.service.logins().size(), 3u);
  EXPECT_EQ(device.service.logins().back().url, "https://host/api_v0_0_0/do_login");
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
