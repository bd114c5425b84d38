#include "tests/platform/linux/lifecycle/SleepTest.h"

#include <filesystem>
#include <limits>
#include <optional>
#include <stdexcept>

#include "platform/linux/lifecycle/SleepMonitor.h"

// What the application makes of the system's sleep, with a logind that does as it should.

namespace kx {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

/// A short delay, so that tasks expire after half of it.
class ExpirationTest : public SleepTest {
 protected:
  static constexpr auto expiration = milliseconds(300);

  ExpirationTest() {
    logind.longestDelay = 600'000;
    application->didEnterBackground();  // the delay is read with each new lock
    EXPECT_TRUE(comesToHold(0));
    application->willEnterForeground();
    EXPECT_TRUE(loopUntil([this] { return logind.delaysRead == 2 && untilNextDue() == -1; }));
    posted.clear();
  }
};

TEST_F(SleepTest, SleepIsTheBackgroundAndWakingTheForeground) {
  logind.prepareForSleep(true);
  ASSERT_TRUE(comesTo(1));
  EXPECT_THAT(posted, ElementsAre(background));
  logind.prepareForSleep(false);
  ASSERT_TRUE(comesTo(2));
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(SleepTest, InTheForegroundOneLockDelaysSleepInTheApplicationsName) {
  EXPECT_THAT(logind.requests, ElementsAre("sleep, org.example.Host, delay"));
  application->willEnterForeground();
  application->endBackgroundTask(application->beginBackgroundTaskWithName("task", nullptr));
  loopFor(milliseconds(100));
  EXPECT_EQ(logind.heldLocks(), 1U);
  EXPECT_EQ(logind.requests.size(), 1U);
}

TEST_F(SleepTest, AHostWithoutAnIdentifierGoesByItsExecutablesName) {
  const auto nameless =
      std::make_shared<LinuxApplication>(center, dispatch, BackgroundRefreshStatus::available);
  nameless->followSleep(*systemBus, LinuxRunLoop::of(g_main_context_default()), std::nullopt);
  ASSERT_TRUE(comesToHold(2));
  const auto executable = std::filesystem::read_symlink("/proc/self/exe").filename().string();
  EXPECT_EQ(logind.requests.back(), "sleep, " + executable + ", delay");
}

TEST_F(SleepTest, WithoutATaskTheSystemMaySleepAsSoonAsTheObserversKnow) {
  bool held = false;
  onBackground([&] { held = logind.heldLocks() == 1; });
  logind.prepareForSleep(true);
  EXPECT_TRUE(comesToHold(0));
  EXPECT_THAT(posted, ElementsAre(background));
  EXPECT_TRUE(held);
}

TEST_F(SleepTest, AwakeAgainItDelaysTheNextSleep) {
  for (int i = 0; i < 3; ++i) {
    logind.prepareForSleep(true);
    ASSERT_TRUE(comesToHold(0));
    logind.prepareForSleep(false);
    ASSERT_TRUE(comesToHold(1));
  }
  EXPECT_EQ(logind.requests.size(), 4U);
}

TEST_F(SleepTest, ATaskThatAnObserverBeginsDelaysSleepUntilItEnds) {
  BackgroundTaskIdentifier task = invalidBackgroundTask;
  onBackground([&] { task = application->beginBackgroundTaskWithName("task", [] { FAIL() << "expired"; }); });
  announceSleep();
  ASSERT_NE(task, invalidBackgroundTask);
  loopFor(milliseconds(100));
  EXPECT_EQ(logind.heldLocks(), 1U);
  std::thread([&] { application->endBackgroundTask(task); }).join();
  EXPECT_TRUE(comesToHold(0));
}

TEST_F(SleepTest, TheLastOfSeveralTasksLetsTheSystemSleep) {
  std::vector<BackgroundTaskIdentifier> tasks;
  onBackground([&] { tasks.push_back(application->beginBackgroundTaskWithName("one", nullptr)); });
  onBackground([&] { tasks.push_back(application->beginBackgroundTaskWithName("two", nullptr)); });
  announceSleep();
  ASSERT_EQ(tasks.size(), 2U);
  application->endBackgroundTask(tasks[0]);
  application->endBackgroundTask(tasks[0]);
  loopFor(milliseconds(100));
  EXPECT_EQ(logind.heldLocks(), 1U);
  application->endBackgroundTask(tasks[1]);
  EXPECT_TRUE(comesToHold(0));
}

TEST_F(SleepTest, WhileSleepIsDelayedAnotherTaskMayBeginAndLaterNone) {
  BackgroundTaskIdentifier task = invalidBackgroundTask;
  onBackground([&] { task = application->beginBackgroundTaskWithName("task", nullptr); });
  announceSleep();
  const auto another = application->beginBackgroundTaskWithName("another", nullptr);
  EXPECT_NE(another, invalidBackgroundTask);
  application->endBackgroundTask(task);
  application->endBackgroundTask(another);
  ASSERT_TRUE(comesToHold(0));
  EXPECT_EQ(application->beginBackgroundTaskWithName("late", nullptr), invalidBackgroundTask);
  logind.prepareForSleep(false);
  ASSERT_TRUE(comesTo(2));
  EXPECT_NE(application->beginBackgroundTaskWithName("awake", nullptr), invalidBackgroundTask);
}

TEST_F(SleepTest, AnObserverThatThrowsDoesNotDelaySleep) {
  makeTheProcessesDevice();
  testing::internal::CaptureStderr();
  onBackground([] { throw std::runtime_error("an observer's reason"); });
  announceSleep();
  EXPECT_TRUE(comesToHold(0));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("an observer's reason"));
}

// ---- The host's background and the system's

TEST_F(SleepTest, InTheBackgroundSleepAndWakingAreNoTransitions) {
  application->didEnterBackground();
  ASSERT_TRUE(comesToHold(0));
  logind.prepareForSleep(true);
  logind.prepareForSleep(false);
  logind.prepareForSleep(true);
  loopFor(milliseconds(100));
  application->willEnterForeground();  // the system sleeps still
  EXPECT_THAT(posted, ElementsAre(background));
  logind.prepareForSleep(false);
  ASSERT_TRUE(comesTo(2));
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(SleepTest, AHostThatIsHiddenWhileTheSystemSleepsStaysInTheBackground) {
  announceSleep();
  application->didEnterBackground();
  logind.prepareForSleep(false);
  loopFor(milliseconds(100));
  EXPECT_THAT(posted, ElementsAre(background));
  application->willEnterForeground();
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(SleepTest, AHostThatComesAndGoesWhileTheSystemSleepsIsNoTransition) {
  announceSleep();
  application->didEnterBackground();
  application->willEnterForeground();
  EXPECT_THAT(posted, ElementsAre(background));
  logind.prepareForSleep(false);
  ASSERT_TRUE(comesTo(2));
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(SleepTest, SleepAnnouncedTwiceIsOneTransition) {
  std::vector<BackgroundTaskIdentifier> tasks;
  onBackground([&] { tasks.push_back(application->beginBackgroundTaskWithName("task", nullptr)); });
  for (const bool start : {true, true, false, false, true, true}) logind.prepareForSleep(start);
  ASSERT_TRUE(comesTo(3));
  loopFor(milliseconds(100));
  EXPECT_THAT(posted, ElementsAre(background, foreground, background));
  for (const auto task : tasks) application->endBackgroundTask(task);
  ASSERT_TRUE(comesToHold(0));
  EXPECT_EQ(untilNextDue(), -1);
}

TEST_F(SleepTest, TheHostsTransitionOnAnotherThreadIsToldBeforeTheSleepLetsGo) {
  BackgroundTaskIdentifier task = invalidBackgroundTask;
  onBackground([&] { task = application->beginBackgroundTaskWithName("task", nullptr); });
  std::thread([this] { application->didEnterBackground(); }).join();
  logind.prepareForSleep(true);
  ASSERT_TRUE(comesTo(1));
  EXPECT_NE(task, invalidBackgroundTask);
  loopFor(milliseconds(100));
  EXPECT_EQ(logind.heldLocks(), 1U);
  application->endBackgroundTask(task);
  EXPECT_TRUE(comesToHold(0));
}

TEST_F(SleepTest, InTheBackgroundOnlyATaskDelaysSleep) {
  application->didEnterBackground();
  EXPECT_TRUE(comesToHold(0));
  BackgroundTaskIdentifier task = invalidBackgroundTask;
  std::thread([&] { task = application->beginBackgroundTaskWithName("task", nullptr); }).join();
  EXPECT_TRUE(comesToHold(1));
  logind.prepareForSleep(true);
  loopFor(milliseconds(100));
  EXPECT_EQ(logind.heldLocks(), 1U);
  application->endBackgroundTask(task);
  EXPECT_TRUE(comesToHold(0));
  EXPECT_THAT(posted, ElementsAre(background));
}

TEST_F(SleepTest, TheTaskOfTheHostsOwnTransitionKeepsTheLockOfTheForeground) {
  BackgroundTaskIdentifier task = invalidBackgroundTask;
  onBackground([&] { task = application->beginBackgroundTaskWithName("task", nullptr); });
  application->didEnterBackground();
  loopFor(milliseconds(100));
  EXPECT_EQ(logind.heldLocks(), 1U);
  EXPECT_EQ(logind.requests.size(), 1U);
  application->endBackgroundTask(task);
  EXPECT_TRUE(comesToHold(0));
  application->willEnterForeground();
  EXPECT_TRUE(comesToHold(1));
}

// ---- Expiration

TEST_F(ExpirationTest, ATaskExpiresOnTheMainThreadWhileSleepIsStillDelayed) {
  using Clock = std::chrono::steady_clock;
  int expirations = 0;
  std::size_t held = 0;
  Clock::time_point expired;
  onBackground([&] {
    application->beginBackgroundTaskWithName("task", [&] {
      EXPECT_TRUE(dispatch.isMainThread());
      expired = Clock::now();
      held = logind.heldLocks();
      ++expirations;
    });
  });
  const auto announced = Clock::now();
  announceSleep();
  ASSERT_TRUE(loopUntil([&] { return expirations > 0; }));
  EXPECT_EQ(held, 1U);
  EXPECT_GE(expired - announced, expiration);
  EXPECT_TRUE(comesToHold(0)) << "its handler has not ended it";
  loopFor(2 * expiration);
  EXPECT_EQ(expirations, 1);
}

TEST_F(ExpirationTest, EveryTaskExpiresWhateverTheOthersHandlersDo) {
  makeTheProcessesDevice();
  testing::internal::CaptureStderr();
  int expirations = 0;
  BackgroundTaskIdentifier refused = 1;
  onBackground([&] {
    application->beginBackgroundTaskWithName("throws",
                                             [] { throw std::runtime_error("a handler's reason"); });
    application->beginBackgroundTaskWithName("has no handler", nullptr);
    application->beginBackgroundTaskWithName("begins another", [&] {
      refused = application->beginBackgroundTaskWithName("another", nullptr);
      ++expirations;
    });
    const auto task = std::make_shared<BackgroundTaskIdentifier>(invalidBackgroundTask);
    *task = application->beginBackgroundTaskWithName("ends itself", [this, task, &expirations] {
      application->endBackgroundTask(*task);
      ++expirations;
    });
  });
  announceSleep();
  EXPECT_TRUE(comesToHold(0));
  EXPECT_EQ(expirations, 2);
  EXPECT_EQ(refused, invalidBackgroundTask);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("a handler's reason"));
}

TEST_F(ExpirationTest, WhatIsOnItsWayDelaysSleepNoLongerThanItCan) {
  std::shared_ptr<void> underWay;
  onBackground([&] { underWay = application->delaySleep(); });
  announceSleep();
  EXPECT_EQ(logind.heldLocks(), 1U);
  EXPECT_TRUE(comesToHold(0));
  EXPECT_EQ(application->beginBackgroundTaskWithName("late", nullptr), invalidBackgroundTask);
  logind.prepareForSleep(false);
  ASSERT_TRUE(comesToHold(1));
  application->didEnterBackground();
  loopFor(milliseconds(100));
  EXPECT_EQ(logind.heldLocks(), 1U) << "it is on its way still";
  underWay.reset();
  EXPECT_TRUE(comesToHold(0));
}

TEST_F(SleepTest, ATaskExpiresASecondBeforeTheDelayIsOver) {
  onBackground([&] { application->beginBackgroundTaskWithName("task", nullptr); });
  announceSleep();
  const int due = untilNextDue();
  EXPECT_LE(due, 599'000);
  EXPECT_GT(due, 500'000);
}

TEST_F(SleepTest, ATaskThatEndsInTimeDoesNotExpire) {
  BackgroundTaskIdentifier task = invalidBackgroundTask;
  onBackground([&] { task = application->beginBackgroundTaskWithName("task", nullptr); });
  announceSleep();
  application->endBackgroundTask(task);
  ASSERT_TRUE(comesToHold(0));
  EXPECT_EQ(untilNextDue(), -1);
}

TEST_F(SleepTest, ATaskThatIsStillRunningWhenTheSystemWakesDoesNotExpire) {
  onBackground([&] { application->beginBackgroundTaskWithName("task", nullptr); });
  logind.prepareForSleep(true);
  logind.prepareForSleep(false);
  ASSERT_TRUE(comesTo(2));
  EXPECT_EQ(untilNextDue(), -1);
  EXPECT_EQ(logind.heldLocks(), 1U);
  EXPECT_EQ(logind.requests.size(), 1U) << "it has been held all the time";
}

TEST_F(SleepTest, NothingIsDueWhileTheSystemIsAwakeOrAsleep) {
  EXPECT_EQ(untilNextDue(), -1);
  const auto task = application->beginBackgroundTaskWithName("task", nullptr);
  application->didEnterBackground();
  loopFor(milliseconds(100));
  EXPECT_EQ(untilNextDue(), -1);
  application->endBackgroundTask(task);
  application->willEnterForeground();
  announceSleep();
  EXPECT_EQ(untilNextDue(), -1);
}

TEST(SleepMonitorTest, TheDelayRunsOutASecondBeforeItsEndOrAtHalfOfAShortOne) {
  const auto runsOutAfter = &SleepMonitor::millisecondsUntilDelayRunsOut;
  EXPECT_EQ(runsOutAfter(5'000'000), 4000U);
  EXPECT_EQ(runsOutAfter(30'000'000), 29'000U);
  EXPECT_EQ(runsOutAfter(2'000'000), 1000U);
  EXPECT_EQ(runsOutAfter(1'000'000), 500U);
  EXPECT_EQ(runsOutAfter(1), 0U);
  EXPECT_EQ(runsOutAfter(0), 0U);
  // "infinity"
  EXPECT_EQ(runsOutAfter(std::numeric_limits<std::uint64_t>::max()),
            std::numeric_limits<unsigned int>::max());
}

}  // namespace
}  // namespace kx
