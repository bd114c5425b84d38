#include <stdexcept>
#include <vector>

#include "KXPublisher/platform/simulated/SimulatedApplication.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

class SimulatedApplicationTest : public SimulatedTest {
 protected:
  SimulatedApplication &application = *device.application;
};

TEST_F(SimulatedApplicationTest, AnnouncesItsTransitionsAsTheSharedApplication) {
  std::vector<std::string> heard;
  for (const char *name :
       {UIApplicationDidEnterBackgroundNotification, UIApplicationWillEnterForegroundNotification}) {
    device.notificationCenter.addObserverForName(name, device.sharedApplication(), device.mainOperations,
                                                 [&heard](const std::shared_ptr<Notification> &notification) {
                                                   heard.push_back(notification->name());
                                                 });
  }
  application.enterBackground();
  application.enterForeground();
  EXPECT_EQ(heard, (std::vector<std::string>{UIApplicationDidEnterBackgroundNotification,
                                             UIApplicationWillEnterForegroundNotification}));
}

TEST_F(SimulatedApplicationTest, RecordsBackgroundTasks) {
  const auto identifier = application.beginBackgroundTaskWithName("name", [] {});
  EXPECT_NE(identifier, invalidBackgroundTask);
  EXPECT_FALSE(application.backgroundTasks.front().ended);
  application.endBackgroundTask(identifier);
  EXPECT_TRUE(application.backgroundTasks.front().ended);
  EXPECT_EQ(application.backgroundTasks.front().name, "name");
}

TEST_F(SimulatedApplicationTest, ExpiresOnlyTasksThatHaveNotEnded) {
  int expired = 0;
  const auto ended = application.beginBackgroundTaskWithName("ended", [&] { expired += 100; });
  application.beginBackgroundTaskWithName("running", [&] { ++expired; });
  application.endBackgroundTask(ended);
  application.expireBackgroundTasks();
  application.expireBackgroundTasks();
  EXPECT_EQ(expired, 1);
}

TEST_F(SimulatedApplicationTest, EndsAnInvalidTaskWithoutHarm) {
  application.endBackgroundTask(invalidBackgroundTask);
  application.endBackgroundTask(17);
  EXPECT_EQ(application.endedIdentifiers, (std::vector<BackgroundTaskIdentifier>{invalidBackgroundTask, 17}));
}

TEST_F(SimulatedApplicationTest, TellsTheRefreshStatusOnTheMainThreadOnly) {
  EXPECT_EQ(application.backgroundRefreshStatus(), BackgroundRefreshStatus::available);
  device.scheduler.globalQueue(DispatchQueuePriority::standard).async([this] {
    EXPECT_THROW(application.backgroundRefreshStatus(), std::logic_error);
  });
  device.runReadyTasks();
}

}  // namespace
}  // namespace kx
