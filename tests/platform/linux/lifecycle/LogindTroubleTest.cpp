#include <algorithm>
#include <filesystem>
#include <optional>

#include "tests/platform/linux/lifecycle/FakeLogind.h"
#include "tests/platform/linux/lifecycle/LifecycleTest.h"

// A logind that is not there, or does not do as it should: the application lives as if there were none.

namespace kx {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using Mood = FakeLogind::Mood;

class LogindTroubleTest : public LifecycleTest {
 protected:
  bool comesTo(std::size_t notifications) {
    return loopUntil([&] { return posted.size() == notifications; });
  }
  bool comesToHold(std::size_t locks) {
    return loopUntil([&] { return logind->heldLocks() == locks; });
  }
  bool isAskedForLocks(std::size_t count) {
    return loopUntil([&] { return logind->requests.size() == count; });
  }
  void start(Mood mood = Mood::grants) {
    logind.emplace(bus);
    logind->mood = mood;
  }
  /// Everything that logind has said so far has been heard afterwards.
  void sleepAndWake() {
    const std::size_t before = posted.size();
    logind->prepareForSleep(true);
    logind->prepareForSleep(false);
    ASSERT_TRUE(comesTo(before + 2));
    EXPECT_EQ(posted[before], background);
    EXPECT_EQ(posted[before + 1], foreground);
  }
  void expectTasksAreGranted() {
    const auto task = application->beginBackgroundTaskWithName("task", [] { FAIL() << "expired"; });
    EXPECT_NE(task, invalidBackgroundTask);
    application->endBackgroundTask(task);
  }
  std::ptrdiff_t openDescriptors() {
    if (logind) logind->heldLocks();  // closes the ends of those that are given up
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
  }

  std::optional<FakeLogind> logind;
};

TEST_F(LogindTroubleTest, WithoutLogindTheHostAloneCounts) {
  ASSERT_TRUE(loopUntil([&] { return isConnected; }));
  application->didEnterBackground();
  expectTasksAreGranted();
  application->willEnterForeground();
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(LogindTroubleTest, WithoutABusTheHostAloneCounts) {
  bus.stop();
  loopFor(milliseconds(100));
  application->didEnterBackground();
  expectTasksAreGranted();
  application->willEnterForeground();
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(LogindTroubleTest, ALogindThatIsStartedLaterIsFollowed) {
  ASSERT_TRUE(loopUntil([&] { return isConnected; }));
  start();
  EXPECT_TRUE(comesToHold(1));
  sleepAndWake();
}

TEST_F(LogindTroubleTest, AContextThatTheHostHasMadeItsThreadsDefaultIsNoObstacle) {
  const ForeignContext context;
  ASSERT_TRUE(loopUntil([&] { return isConnected; }));
  start();
  EXPECT_TRUE(comesToHold(1));
  application->didEnterBackground();
  EXPECT_TRUE(comesToHold(0));
  application->willEnterForeground();
  EXPECT_TRUE(comesToHold(1));
  sleepAndWake();
  logind.reset();
  start();
  EXPECT_TRUE(comesToHold(1));
}

TEST_F(LogindTroubleTest, ALogindThatIsStartedWhileTheHostIsHiddenIsNotAskedForALock) {
  application->didEnterBackground();
  start();
  loopFor(milliseconds(200));
  EXPECT_TRUE(logind->requests.empty());
  application->willEnterForeground();
  EXPECT_TRUE(comesToHold(1));
}

TEST_F(LogindTroubleTest, WhenLogindGoesTheSystemCountsAsAwakeAndTheLockIsGivenUp) {
  ASSERT_TRUE(loopUntil([&] { return isConnected; }));
  const auto descriptors = openDescriptors();
  start();
  ASSERT_TRUE(comesToHold(1));
  BackgroundTaskIdentifier task = invalidBackgroundTask;
  onBackground([&] { task = application->beginBackgroundTaskWithName("task", nullptr); });
  logind->prepareForSleep(true);
  ASSERT_TRUE(comesTo(1));
  EXPECT_NE(task, invalidBackgroundTask);
  logind.reset();
  ASSERT_TRUE(comesTo(2));
  EXPECT_THAT(posted, ElementsAre(background, foreground));
  EXPECT_TRUE(loopUntil([&] { return openDescriptors() <= descriptors; }));
  EXPECT_TRUE(loopUntil([] { return untilNextDue() == -1; })) << "its task still expires";
  expectTasksAreGranted();

  start();
  ASSERT_TRUE(comesToHold(1));
  sleepAndWake();
}

TEST_F(LogindTroubleTest, WhenLogindGoesWhileNothingDelaysTheSleepTasksAreGrantedAgain) {
  start();
  ASSERT_TRUE(comesToHold(1));
  logind->prepareForSleep(true);
  ASSERT_TRUE(comesToHold(0));
  logind.reset();
  ASSERT_TRUE(comesTo(2));
  expectTasksAreGranted();
}

TEST_F(LogindTroubleTest, WhenTheBusGoesTheSystemCountsAsAwakeUntilTheNextOneIsThere) {
  start();
  ASSERT_TRUE(comesToHold(1));
  logind->prepareForSleep(true);
  ASSERT_TRUE(comesTo(1));
  bus.stop();
  ASSERT_TRUE(comesTo(2));
  EXPECT_THAT(posted, ElementsAre(background, foreground));
  logind.reset();
  bus.start();
  start();
  EXPECT_TRUE(comesToHold(1));
  sleepAndWake();
}

TEST_F(LogindTroubleTest, ALogindThatHangsIsAskedOnceAndWaitedForByNobody) {
  start(Mood::hangs);
  ASSERT_TRUE(isAskedForLocks(1));
  for (int i = 0; i < 20; ++i) {
    application->didEnterBackground();
    expectTasksAreGranted();
    application->willEnterForeground();
  }
  sleepAndWake();
  EXPECT_EQ(posted.size(), 42U);
  EXPECT_EQ(logind->requests.size(), 1U);
  logind->answerNow();
  EXPECT_TRUE(comesToHold(1));
}

TEST_F(LogindTroubleTest, ALockThatComesWhenNothingNeedsItAnyMoreIsGivenUp) {
  start(Mood::hangs);
  ASSERT_TRUE(isAskedForLocks(1));
  application->didEnterBackground();
  const auto descriptors = openDescriptors();
  logind->answerNow();
  EXPECT_TRUE(comesToHold(0));
  EXPECT_TRUE(loopUntil([&] { return openDescriptors() <= descriptors; }));
}

TEST_F(LogindTroubleTest, ALogindThatHangsAndGoesLeavesNothingBehind) {
  ASSERT_TRUE(loopUntil([&] { return isConnected; }));
  const auto descriptors = openDescriptors();
  start(Mood::hangs);
  ASSERT_TRUE(isAskedForLocks(1));
  logind->answerNow();
  logind.reset();
  start();
  EXPECT_TRUE(comesToHold(1));
  logind.reset();
  EXPECT_TRUE(loopUntil([&] { return openDescriptors() <= descriptors; }));
}

TEST_F(LogindTroubleTest, ARefusedLockIsAskedForAgainWhenTheSystemWakes) {
  start(Mood::refuses);
  ASSERT_TRUE(isAskedForLocks(1));
  loopFor(milliseconds(100));
  EXPECT_EQ(logind->requests.size(), 1U) << "not again by itself";
  logind->mood = Mood::grants;
  logind->prepareForSleep(false);  // the announcement of the sleep came before this logind was found
  EXPECT_TRUE(comesToHold(1));
  EXPECT_TRUE(posted.empty());
}

TEST_F(LogindTroubleTest, WithoutALockTheTransitionsAreTheSame) {
  for (const Mood mood :
       {Mood::refuses, Mood::talksNonsense, Mood::sendsNoDescriptor, Mood::sendsAWrongIndex}) {
    start(mood);
    ASSERT_TRUE(isAskedForLocks(1));
    posted.clear();
    sleepAndWake();
    EXPECT_TRUE(comesToHold(0));
    expectTasksAreGranted();
    logind.reset();
    loopFor(milliseconds(100));
  }
}

TEST_F(LogindTroubleTest, AnnouncementsOfOtherTypesAreNone) {
  start();
  ASSERT_TRUE(comesToHold(1));
  logind->emit("PrepareForSleep", nullptr);
  logind->emit("PrepareForSleep", g_variant_new("(s)", "true"));
  logind->emit("PrepareForSleep", g_variant_new("(bb)", TRUE, TRUE));
  logind->emit("PrepareForSleep", g_variant_new("(v)", g_variant_new_boolean(TRUE)));
  logind->emit("PrepareForShutdown", g_variant_new("(b)", TRUE));
  sleepAndWake();
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(LogindTroubleTest, AnnouncementsOfOthersAreNone) {
  start();
  ASSERT_TRUE(comesToHold(1));
  const auto stranger = bus.connect();
  for (const char *const path : {"/org/freedesktop/login1", "/org/example"}) {
    g_dbus_connection_emit_signal(stranger.get(), nullptr, path, "org.freedesktop.login1.Manager",
                                  "PrepareForSleep", g_variant_new("(b)", TRUE), nullptr);
  }
  g_dbus_connection_flush_sync(stranger.get(), nullptr, nullptr);
  loopFor(milliseconds(100));
  EXPECT_TRUE(posted.empty());
  sleepAndWake();
}

TEST_F(LogindTroubleTest, AFloodOfAnnouncementsEndsAsTheLastOneSays) {
  start();
  ASSERT_TRUE(comesToHold(1));
  // The application's end of the lock may still be under way, and so in nobody's table of descriptors.
  const auto descriptors = openDescriptors() + 1;
  for (int i = 0; i < 500; ++i) {
    logind->prepareForSleep(true);
    logind->prepareForSleep(false);
  }
  ASSERT_TRUE(comesTo(1000));
  for (std::size_t i = 0; i < posted.size(); ++i) {
    ASSERT_EQ(posted[i], i % 2 == 0 ? background : foreground) << i;
  }
  EXPECT_TRUE(comesToHold(1));
  EXPECT_TRUE(loopUntil([&] { return openDescriptors() <= descriptors; }));
  loopFor(milliseconds(100));
  const std::size_t requests = logind->requests.size();
  loopFor(milliseconds(100));
  EXPECT_EQ(logind->requests.size(), requests) << "it goes on asking";
}

TEST_F(LogindTroubleTest, AFloodOfLogindsEndsWithOneLock) {
  ASSERT_TRUE(loopUntil([&] { return isConnected; }));
  const auto descriptors = openDescriptors();
  for (int i = 0; i < 50; ++i) {
    start(i % 2 == 0 ? Mood::grants : Mood::hangs);
    if (i % 5 == 0) loopFor(milliseconds(5));
    logind.reset();
  }
  start();
  EXPECT_TRUE(comesToHold(1));
  logind.reset();
  EXPECT_TRUE(loopUntil([&] { return openDescriptors() <= descriptors; }));
}

TEST_F(LogindTroubleTest, AnApplicationThatIsReleasedGivesUpItsLockAndHearsNothing) {
  start();
  ASSERT_TRUE(comesToHold(1));
  logind->prepareForSleep(true);
  application.reset();
  EXPECT_TRUE(comesToHold(0));
  EXPECT_TRUE(posted.empty());
}

}  // namespace
}  // namespace kx
