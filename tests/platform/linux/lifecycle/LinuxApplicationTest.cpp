#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KXPublisher/platform/LocalNotificationCenter.h"
#include "KXPublisher/platform/MainOperationQueue.h"
#include "platform/linux/lifecycle/LinuxApplication.h"
#include "platform/linux/threads/LinuxDispatch.h"
#include "tests/platform/linux/MainLoop.h"

namespace kx {
namespace {

using testing::ElementsAre;

constexpr const char *background = UIApplicationDidEnterBackgroundNotification;
constexpr const char *foreground = UIApplicationWillEnterForegroundNotification;

/// Never destroyed, as in a real process.
LinuxDispatch &theDispatch() {
  static auto &dispatch = *new LinuxDispatch(LinuxRunLoop::of(g_main_context_default()));
  return dispatch;
}

class LinuxApplicationTest : public testing::Test {
 protected:
  LinuxApplicationTest() {
    for (const char *const name : {background, foreground}) {
      center.addObserverForName(name, application, mainOperations,
                                [this](const std::shared_ptr<Notification> &notification) {
                                  EXPECT_TRUE(dispatch.isMainThread());
                                  EXPECT_EQ(notification->object(), application);
                                  posted.push_back(notification->name());
                                });
    }
  }

  LinuxDispatch &dispatch = theDispatch();
  const std::shared_ptr<OperationQueue> mainOperations = std::make_shared<MainOperationQueue>(dispatch);
  LocalNotificationCenter center{dispatch, mainOperations};
  const std::shared_ptr<LinuxApplication> application =
      std::make_shared<LinuxApplication>(center, dispatch, BackgroundRefreshStatus::denied);
  std::vector<std::string> posted;
};

TEST_F(LinuxApplicationTest, NotifiesBeforeTheCallOnTheMainThreadReturns) {
  const MainThread thread;
  application->didEnterBackground();
  EXPECT_THAT(posted, ElementsAre(background));
  application->willEnterForeground();
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(LinuxApplicationTest, NotifiesOnceATransition) {
  const MainThread thread;
  application->willEnterForeground();  // it starts there
  EXPECT_TRUE(posted.empty());
  application->didEnterBackground();
  application->didEnterBackground();
  application->willEnterForeground();
  application->willEnterForeground();
  application->didEnterBackground();
  EXPECT_THAT(posted, ElementsAre(background, foreground, background));
}

TEST_F(LinuxApplicationTest, NotifiesOnTheMainThreadWhicheverThreadItIsToldOn) {
  std::thread([this] { application->didEnterBackground(); }).join();
  EXPECT_TRUE(posted.empty());
  EXPECT_TRUE(MainThread().runUntil([this] { return !posted.empty(); }));
  EXPECT_THAT(posted, ElementsAre(background));
}

TEST_F(LinuxApplicationTest, NotifiesInTheOrderOfTheCalls) {
  const MainThread thread;
  std::thread([this] { application->didEnterBackground(); }).join();
  application->willEnterForeground();  // overtakes the main queue, but not the other call
  EXPECT_THAT(posted, ElementsAre(background, foreground));
  bool ended = false;
  dispatch.mainQueue().async([&ended] { ended = true; });
  EXPECT_TRUE(thread.runUntil([&ended] { return ended; }));
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(LinuxApplicationTest, AnObserverMayMoveItOn) {
  const MainThread thread;
  center.addObserverForName(
      background, application, mainOperations,
      [this](const std::shared_ptr<Notification> &) { application->willEnterForeground(); });
  application->didEnterBackground();
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(LinuxApplicationTest, AnObserverThatThrowsKeepsNoLaterTransitionBack) {
  const MainThread thread;
  center.addObserverForName(
      background, application, mainOperations,
      [](const std::shared_ptr<Notification> &) { throw std::runtime_error("an observer's reason"); });
  std::thread([this] { application->didEnterBackground(); }).join();
  testing::internal::CaptureStderr();
  EXPECT_NO_THROW(application->willEnterForeground());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("ended a task: an observer's reason\n"));
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(LinuxApplicationTest, TransitionsOfManyThreadsAlternate) {
  std::vector<std::thread> threads;
  std::atomic<int> running{4};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, &running] {
      for (int round = 0; round < 500; ++round) {
        application->didEnterBackground();
        application->willEnterForeground();
      }
      --running;
      dispatch.mainQueue().async([] {});
    });
  }
  const MainThread thread;
  EXPECT_TRUE(thread.runUntil([&running] { return running == 0; }));
  for (std::thread &other : threads) other.join();
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
  }
  ASSERT_GE(posted.size(), 2U);
  for (std::size_t i = 0; i < posted.size(); ++i) {
    ASSERT_EQ(posted[i], i % 2 == 0 ? background : foreground) << i;
  }
}

/// A main queue that nobody serves.
class StoppedDispatch : public Dispatch {
 public:
  DispatchQueue &globalQueue(DispatchQueuePriority /*priority*/) override { return queue; }
  DispatchQueue &mainQueue() override { return queue; }
  bool isMainThread() override { return false; }

  struct Queue : DispatchQueue {
    void async(WorkItem task) override {
      if (hasNoMemory) throw std::bad_alloc();
      tasks.push_back(std::move(task));
    }
    void sync(WorkItem /*task*/) override {}

    bool hasNoMemory = false;
    std::vector<WorkItem> tasks;
  } queue;
};

/// An application whose main loop does not run.
class LinuxApplicationWaitTest : public LinuxApplicationTest {
 protected:
  LinuxApplicationWaitTest() {
    for (const char *const name : {background, foreground}) {
      center.addObserverForName(
          name, waiting, mainOperations,
          [this, name](const std::shared_ptr<Notification> &) { names.emplace_back(name); });
    }
  }

  const MainThread thread;
  StoppedDispatch stopped;
  const std::shared_ptr<LinuxApplication> waiting =
      std::make_shared<LinuxApplication>(center, stopped, BackgroundRefreshStatus::denied);
  std::vector<std::string> names;  ///< of what was posted
};

TEST_F(LinuxApplicationWaitTest, WhatWaitsForALoopThatDoesNotRunHasABound) {
  for (int i = 0; i < 5000; ++i) {
    waiting->didEnterBackground();
    waiting->willEnterForeground();
  }
  waiting->didEnterBackground();
  ASSERT_EQ(stopped.queue.tasks.size(), 1U);
  stopped.queue.tasks.back()();
  ASSERT_LE(names.size(), 100U);
  for (std::size_t i = 0; i < names.size(); ++i) ASSERT_EQ(names[i], i % 2 == 0 ? background : foreground);
  EXPECT_EQ(names.back(), background) << "what holds at the end";
  waiting->willEnterForeground();
  ASSERT_EQ(stopped.queue.tasks.size(), 2U);
  stopped.queue.tasks.back()();
  EXPECT_EQ(names.back(), foreground);
}

TEST_F(LinuxApplicationWaitTest, ATransitionThatThereWasNoMemoryForIsPostedWithTheNext) {
  stopped.queue.hasNoMemory = true;
  EXPECT_THROW(waiting->didEnterBackground(), std::bad_alloc);
  stopped.queue.hasNoMemory = false;
  waiting->willEnterForeground();
  ASSERT_EQ(stopped.queue.tasks.size(), 1U);
  stopped.queue.tasks.back()();
  EXPECT_THAT(names, ElementsAre(background, foreground));
}

TEST_F(LinuxApplicationTest, AnswersTheHostsBackgroundRefreshStatus) {
  EXPECT_EQ(application->backgroundRefreshStatus(), BackgroundRefreshStatus::denied);
}

TEST_F(LinuxApplicationTest, GrantsEachBackgroundTaskAnIdentifierOfItsOwn) {
  std::set<BackgroundTaskIdentifier> identifiers;
  for (int i = 0; i < 100; ++i) {
    identifiers.insert(application->beginBackgroundTaskWithName("task", [] { FAIL() << "no task expires"; }));
  }
  EXPECT_EQ(identifiers.size(), 100U);
  EXPECT_EQ(identifiers.count(invalidBackgroundTask), 0U);
}

TEST_F(LinuxApplicationTest, EndingABackgroundTaskIsHarmlessHoweverOften) {
  const auto identifier = application->beginBackgroundTaskWithName("task", nullptr);
  for (const auto ended : {identifier, identifier, invalidBackgroundTask, identifier + 1000}) {
    EXPECT_NO_THROW(application->endBackgroundTask(ended));
  }
  EXPECT_NE(application->beginBackgroundTaskWithName("task", nullptr), identifier);
}

}  // namespace
}  // namespace kx
