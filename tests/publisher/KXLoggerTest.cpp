#include "KXPublisher/publisher/KXLogger.h"
#include "tests/support/SimulatedTest.h"
#include "tests/support/Submissions.h"

namespace kx {
namespace {

class KXLoggerTest : public SimulatedTest {
 protected:
  void SetUp() override { device.advance(1); }

  std::shared_ptr<KXLogger> logger = KXLogger::sharedInstanceWithApiToken("first", "first.example");
  const Dictionary message{{"ifa", "6D92078A-8246-4BA4-AE5B-76104861E7DC"}};

  std::size_t sent() const { return device.service.messages().size(); }
};

TEST_F(KXLoggerTest, IsOneInAProcessBoundToTheFirstTransportClient) {
  const auto second = KXLogger::sharedInstanceWithApiToken("second", "second.example");
  EXPECT_EQ(second, logger);
  EXPECT_EQ(second->kxNetworking(), KXNetworking::sharedInstanceWithApiToken("third", "third.example"));
  EXPECT_EQ(second->kxNetworking()->hostname(), "first.example");
  EXPECT_EQ(second->kxNetworking()->apiToken(), "first");
}

TEST_F(KXLoggerTest, SendsBeforeItReturnsUnlessAsynchronous) {
  logger->logData(message, false);
  EXPECT_EQ(sent(), 1u);
}

TEST_F(KXLoggerTest, ReturnsBeforeItSendsWhenAsynchronous) {
  logger->logData(message, true);
  EXPECT_EQ(sent(), 0u);
  device.runReadyTasks();
  EXPECT_EQ(sent(), 1u);
}

TEST_F(KXLoggerTest, SendsAsynchronousMessagesFromTheBackgroundQueue) {
  device.scheduler.trace.recording = true;
  logger->logData(message, true);
  EXPECT_EQ(submissions(device, "background"), 1u);
  device.runReadyTasks();
  EXPECT_EQ(sent(), 1u);
}

TEST_F(KXLoggerTest, HasSentWhenItReturnsWhereThatQueueIsQuicker) {
  device.scheduler.setBackgroundTasksRunAtOnce(true);
  logger->logData(message, true);
  EXPECT_EQ(sent(), 1u);
}

TEST_F(KXLoggerTest, DropsAMessageWithoutATransportClientAndSaysNothing) {
  logger->setKxNetworking(nullptr);
  logger->logData(message, false);
  logger->logData(message, true);
  device.advance(1);
  EXPECT_EQ(sent(), 0u);
  EXPECT_TRUE(device.consoleService.lines.empty());
}

TEST_F(KXLoggerTest, ReadsTheTransportClientAgainWhenTheHandOffRuns) {
  logger->logData(message, true);
  logger->setKxNetworking(nullptr);
  device.advance(1);
  EXPECT_EQ(sent(), 0u);
}

TEST_F(KXLoggerTest, StaysAliveForAHandOffThatWaits) {
  auto own = KXLogger::initWithApiToken("other", "other.example");
  EXPECT_EQ(own->kxNetworking(), logger->kxNetworking());
  own->logData(message, true);
  own = nullptr;
  device.runReadyTasks();
  EXPECT_EQ(sent(), 1u);
}

}  // namespace
}  // namespace kx
