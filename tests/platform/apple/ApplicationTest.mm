// The application: its background tasks.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/Platform.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Application &application() {
  return *Platform::current().sharedApplication();
}

TEST(AppleApplication, TellsWhetherTheHostMayRefreshInTheBackground) {
  EXPECT_EQ(application().backgroundRefreshStatus(), BackgroundRefreshStatus::available);
  standin::application().backgroundRefreshStatus = UIBackgroundRefreshStatusDenied;
  EXPECT_EQ(application().backgroundRefreshStatus(), BackgroundRefreshStatus::denied);
  standin::application().backgroundRefreshStatus = UIBackgroundRefreshStatusRestricted;
  EXPECT_EQ(application().backgroundRefreshStatus(), BackgroundRefreshStatus::restricted);
}

TEST(AppleApplication, BeginsAndEndsBackgroundTasksByTheirIdentifiers) {
  const auto first = application().beginBackgroundTaskWithName("first", [] {});
  const auto second = application().beginBackgroundTaskWithName("second", [] {});
  EXPECT_EQ(first, standin::firstBackgroundTask);
  EXPECT_THAT(standin::begunBackgroundTasks(), ElementsAre("first", "second"));
  application().endBackgroundTask(second);
  EXPECT_THAT(standin::runningBackgroundTasks(), ElementsAre(first));
  application().endBackgroundTask(first);
  EXPECT_THAT(standin::endedBackgroundTasks(), ElementsAre(second, first));
}

TEST(AppleApplication, ABackgroundTaskThatRunsOutOfTimeIsTold) {
  BackgroundTaskIdentifier task = invalidBackgroundTask;
  int expirations = 0;
  task = application().beginBackgroundTaskWithName("task", [&] {
    ++expirations;
    application().endBackgroundTask(task);
  });
  standin::expireBackgroundTasks();
  standin::expireBackgroundTasks();
  EXPECT_EQ(expirations, 1);
  EXPECT_THAT(standin::endedBackgroundTasks(), ElementsAre(standin::firstBackgroundTask));
}

TEST(AppleApplication, ReleasesWhatTheExpirationHandlerHoldsWithTheTask) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> weak = held;
  @autoreleasepool {
    const auto task = application().beginBackgroundTaskWithName("task", [held] { EXPECT_EQ(*held, 1); });
    held.reset();
    EXPECT_FALSE(weak.expired());
    application().endBackgroundTask(task);
  }
  EXPECT_TRUE(weak.expired());
}

TEST(AppleApplication, ATaskThatIsNotGrantedIsInvalid) {
  standin::application().grantsBackgroundTasks = false;
  EXPECT_EQ(application().beginBackgroundTaskWithName("task", [] {}), invalidBackgroundTask);
  EXPECT_THAT(standin::begunBackgroundTasks(), IsEmpty());
  application().endBackgroundTask(invalidBackgroundTask);
  EXPECT_THAT(standin::endedBackgroundTasks(), ElementsAre(::UIBackgroundTaskInvalid));
}

TEST(AppleApplication, EndsWhatAnExpirationHandlerThrows) {
  application().beginBackgroundTaskWithName("task", [] { throw 1; });
  EXPECT_NO_THROW(standin::expireBackgroundTasks());
}

}  // namespace
}  // namespace kx
