#include <vector>

#include "KXPublisher/platform/simulated/SimulatedCollectionService.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

using Service = SimulatedCollectionService;

class SimulatedCollectionServiceTest : public SimulatedTest {
 protected:
  struct Outcome {
    double time = 0;
    std::shared_ptr<HTTPURLResponse> response;
    std::optional<Error> error;
    bool onMainThread = true;
  };
  std::vector<Outcome> outcomes;

  std::shared_ptr<URLSessionUploadTask> task(const std::string &path, HTTPHeaderFields fields = {}) {
    URLRequest request(URL{"https://host" + path});
    request.HTTPMethod = "POST";
    request.allHTTPHeaderFields = std::move(fields);
    return device.urlSessionService.sessionWithDefaultConfiguration()->uploadTaskWithRequest(
        request, Data{1, 2, 3},
        [this](const std::shared_ptr<URLResponse> &response, const std::optional<Error> &error) {
          outcomes.push_back({device.scheduler.uptime(), std::dynamic_pointer_cast<HTTPURLResponse>(response),
                              error, device.scheduler.isMainThread()});
        });
  }
};

TEST_F(SimulatedCollectionServiceTest, GivesOutTokensAndTakesMessagesThatCarryThem) {
  task(Service::loginPath)->resume();
  device.advance(1);
  ASSERT_EQ(outcomes.size(), 1u);
  EXPECT_EQ(outcomes[0].response->allHeaderFields().at("set-authorization"), "token-1");
  task(Service::messagePath, {{"Authorization", "Bearer token-1"}})->resume();
  task(Service::messagePath, {{"Authorization", "Bearer other"}})->resume();
  task(Service::messagePath)->resume();
  task("/elsewhere")->resume();
  device.advance(1);
  ASSERT_EQ(outcomes.size(), 5u);
  EXPECT_EQ(outcomes[1].response->statusCode(), 200);
  EXPECT_EQ(outcomes[2].response->statusCode(), 403);
  EXPECT_EQ(outcomes[3].response->statusCode(), 403);
  EXPECT_EQ(outcomes[4].response->statusCode(), 404);
}

TEST_F(SimulatedCollectionServiceTest, RefusesTokensThatWereRevoked) {
  task(Service::loginPath)->resume();
  device.advance(1);
  device.service.revokeTokens();
  task(Service::messagePath, {{"Authorization", "Bearer token-1"}})->resume();
  device.advance(1);
  EXPECT_EQ(outcomes.back().response->statusCode(), 403);
}

TEST_F(SimulatedCollectionServiceTest, GivesScriptedAnswersFirst) {
  device.service.script(Service::loginPath,
                        {SimulatedReply::status(500), SimulatedReply::failure("no route")});
  for (int i = 0; i < 3; ++i) task(Service::loginPath)->resume();
  device.advance(1);
  ASSERT_EQ(outcomes.size(), 3u);
  EXPECT_EQ(outcomes[0].response->statusCode(), 500);
  EXPECT_EQ(outcomes[1].error->localizedDescription, "no route");
  EXPECT_EQ(outcomes[2].response->statusCode(), 200);
}

TEST_F(SimulatedCollectionServiceTest, CompletesAfterTheLatencyOffTheMainThread) {
  SimulatedReply slow;
  slow.latency = 12;
  device.service.script(Service::messagePath, {slow});
  task(Service::messagePath)->resume();
  device.advance(11.9);
  EXPECT_TRUE(outcomes.empty());
  device.advance(0.2);
  ASSERT_EQ(outcomes.size(), 1u);
  EXPECT_FALSE(outcomes[0].onMainThread);
}

TEST_F(SimulatedCollectionServiceTest, GivesUpAfterAMinuteOfSilence) {
  device.service.script(Service::messagePath, {SimulatedReply::silence()});
  task(Service::messagePath)->resume();
  device.advance(59.9);
  EXPECT_TRUE(outcomes.empty());
  device.advance(0.2);
  ASSERT_EQ(outcomes.size(), 1u);
  EXPECT_TRUE(outcomes[0].error.has_value());
}

TEST_F(SimulatedCollectionServiceTest, SendsNothingBeforeATaskIsResumedAndOnlyOnce) {
  const auto unsent = task(Service::messagePath);
  device.advance(100);
  EXPECT_TRUE(device.service.requests.empty());
  unsent->resume();
  unsent->resume();
  device.advance(100);
  EXPECT_EQ(device.service.requests.size(), 1u);
  EXPECT_EQ(outcomes.size(), 1u);
}

TEST_F(SimulatedCollectionServiceTest, MakesNoTasksInASessionThatWasToldToFinish) {
  const auto session = device.urlSessionService.sessionWithDefaultConfiguration();
  session->finishTasksAndInvalidate();
  EXPECT_EQ(session->uploadTaskWithRequest(URLRequest(URL{"https://host/"}), Data(), nullptr), nullptr);
  EXPECT_EQ(device.urlSessionService.sessions, 1);
  EXPECT_EQ(device.urlSessionService.invalidatedSessions, 1);
}

TEST_F(SimulatedCollectionServiceTest, LetsSomethingHappenOnceWhileTheNextSessionIsMade) {
  int happened = 0;
  device.urlSessionService.whileNextSessionIsMade = [&happened] { ++happened; };
  task(Service::messagePath);
  EXPECT_EQ(happened, 1);
  task(Service::messagePath);
  EXPECT_EQ(happened, 1);
}

TEST_F(SimulatedCollectionServiceTest, RefusesTextThatIsNoURL) {
  SimulatedURLSessionService &service = device.urlSessionService;
  EXPECT_EQ(service.URLWithString("https://host:8443/path")->absoluteString, "https://host:8443/path");
  for (const char *text :
       {"", "host/path", "https:///path", "https://ho st/path", "https://host/\n", "://host/"}) {
    EXPECT_FALSE(service.URLWithString(text).has_value()) << text;
  }
}

TEST_F(SimulatedCollectionServiceTest, ReadsOnlyASingleWholeGzipMember) {
  SimulatedRequest request;
  EXPECT_EQ(request.text(), std::nullopt);
  request.body = Data{'p', 'l', 'a', 'i', 'n'};
  EXPECT_EQ(request.text(), std::nullopt);
  const Data member{0x1f, 0x8b, 8,    0,    0,    0,    0, 0, 0, 3, 0x4b,
                    0x04, 0,    0x43, 0xbe, 0xb7, 0xe8, 1, 0, 0, 0};  // "a"
  request.body = member;
  EXPECT_EQ(request.text(), "a");
  request.body->insert(request.body->end(), member.begin(), member.end());
  EXPECT_EQ(request.text(), std::nullopt);
  request.body = Data(member.begin(), member.end() - 1);
  EXPECT_EQ(request.text(), std::nullopt);
}

}  // namespace
}  // namespace kx
