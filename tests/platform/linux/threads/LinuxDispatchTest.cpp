#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/linux/threads/LinuxDispatch.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

constexpr std::array<DispatchQueuePriority, 4> priorities{
    DispatchQueuePriority::high, DispatchQueuePriority::standard, DispatchQueuePriority::low,
    DispatchQueuePriority::background};

/// Never destroyed, as in a real process: its threads may live as long.
LinuxDispatch &dispatch() {
  static auto &dispatch = *new LinuxDispatch(LinuxRunLoop::of(g_main_context_default()));
  return dispatch;
}

TEST(LinuxDispatchMainQueue, RunsTasksOnTheMainThreadOnly) {
  std::atomic<bool> ran{false};
  bool onMainThread = false;
  dispatch().globalQueue(DispatchQueuePriority::standard).async([&] {
    EXPECT_FALSE(dispatch().isMainThread());
    dispatch().mainQueue().async([&] {
      onMainThread = dispatch().isMainThread();
      ran = true;
    });
  });
  EXPECT_TRUE(MainThread().runUntil([&ran] { return ran.load(); }));
  EXPECT_TRUE(onMainThread);
  EXPECT_FALSE(dispatch().isMainThread());  // nobody runs the loop any more
}

TEST(LinuxDispatchMainQueue, SyncWaitsForTheMainThread) {
  std::atomic<int> values{0};
  constexpr int workersNumber = 4;
  for (int i = 0; i < workersNumber; ++i) {
    dispatch().globalQueue(DispatchQueuePriority::background).async([&values] {
      int value = 0;
      dispatch().mainQueue().sync([&value] { value = dispatch().isMainThread() ? 1 : 0; });
      values += value;
      dispatch().mainQueue().async([] {});  // has the main thread look again
    });
  }
  EXPECT_TRUE(MainThread().runUntil([&values] { return values == workersNumber; }));
}

TEST(LinuxDispatchMainQueue, SyncOnTheMainThreadRunsTheTaskInPlace) {
  const MainThread thread;
  bool ran = false;
  dispatch().mainQueue().sync([&ran] { ran = true; });
  EXPECT_TRUE(ran);
}

TEST(LinuxDispatchMainQueue, SyncReturnsWhenTheTaskThrows) {
  std::atomic<bool> returned{false};
  testing::internal::CaptureStderr();
  dispatch().globalQueue(DispatchQueuePriority::standard).async([&returned] {
    dispatch().mainQueue().sync([] { throw std::runtime_error("no web engine"); });
    returned = true;
    dispatch().mainQueue().async([] {});
  });
  EXPECT_TRUE(MainThread().runUntil([&returned] { return returned.load(); }));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("ended a task: no web engine\n"));
}

TEST(LinuxDispatchMainQueue, SyncReleasesWhatTheTaskHoldsOnTheMainThreadBeforeItReturns) {
  bool releasedOnMainThread = false;
  bool releasedInTime = false;
  std::atomic<bool> returned{false};
  dispatch().globalQueue(DispatchQueuePriority::standard).async([&] {
    std::shared_ptr<int> held(new int, [&releasedOnMainThread](const int *object) {
      delete object;
      releasedOnMainThread = dispatch().isMainThread();
    });
    dispatch().mainQueue().sync([held = std::move(held)] {});
    releasedInTime = releasedOnMainThread;
    returned = true;
    dispatch().mainQueue().async([] {});
  });
  EXPECT_TRUE(MainThread().runUntil([&returned] { return returned.load(); }));
  EXPECT_TRUE(releasedInTime);
}

TEST(LinuxDispatchGlobalQueues, RunTasksOffTheThreadThatAddsThem) {
  const MainThread main;
  for (const auto priority : priorities) {
    std::atomic<bool> ran{false};
    std::thread::id thread;
    bool onMainThread = true;
    dispatch().globalQueue(priority).async([&] {
      thread = std::this_thread::get_id();
      onMainThread = dispatch().isMainThread();
      ran = true;
      dispatch().mainQueue().async([] {});
    });
    EXPECT_TRUE(main.runUntil([&ran] { return ran.load(); }));
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_FALSE(onMainThread);
  }
}

TEST(LinuxDispatchGlobalQueues, SyncWaitsForTheTask) {
  for (const auto priority : priorities) {
    std::thread::id thread;
    dispatch().globalQueue(priority).sync([&thread] { thread = std::this_thread::get_id(); });
    EXPECT_NE(thread, std::thread::id());
    EXPECT_NE(thread, std::this_thread::get_id());
  }
}

TEST(LinuxDispatchGlobalQueues, SyncInATaskOfTheSameQueueNeverWaitsForItself) {
  // More tasks than threads, each waiting for one more.
  constexpr unsigned tasksNumber = 3 * LinuxWorkerPool::maximumThreads;
  std::atomic<unsigned> ended{0};
  for (unsigned i = 0; i < tasksNumber; ++i) {
    DispatchQueue &queue = dispatch().globalQueue(DispatchQueuePriority::standard);
    queue.async([&queue, &ended] { queue.sync([&ended] { ++ended; }); });
  }
  EXPECT_TRUE(eventually([&ended] { return ended == tasksNumber; }));
}

TEST(LinuxDispatchGlobalQueues, WaitForOneAnother) {
  std::atomic<bool> ended{false};
  dispatch().globalQueue(DispatchQueuePriority::standard).async([&ended] {
    dispatch().globalQueue(DispatchQueuePriority::background).sync([&ended] { ended = true; });
  });
  EXPECT_TRUE(eventually([&ended] { return ended.load(); }));
}

TEST(LinuxDispatchBackgroundQueue, WorkOfTheMainThreadStartsWhenItIsBackInItsLoop) {
  const MainThread main;
  std::atomic<bool> ran{false};
  bool ranInTheMiddle = true;
  dispatch().mainQueue().async([&] {
    dispatch().globalQueue(DispatchQueuePriority::background).async([&ran] {
      ran = true;
      dispatch().mainQueue().async([] {});
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // plenty of time for a worker
    ranInTheMiddle = ran;
  });
  EXPECT_TRUE(main.runUntil([&ran] { return ran.load(); }));
  EXPECT_FALSE(ranInTheMiddle);
}

TEST(LinuxDispatchBackgroundQueue, WorkStartsWhenTheLoopFirstRuns) {
  std::atomic<bool> ran{false};
  dispatch().globalQueue(DispatchQueuePriority::background).async([&ran] {
    ran = true;
    dispatch().mainQueue().async([] {});
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(ran);
  EXPECT_TRUE(MainThread().runUntil([&ran] { return ran.load(); }));
}

TEST(LinuxDispatchBackgroundQueue, WorkOfOtherThreadsDoesNotWaitForTheMainThread) {
  const MainThread main;
  bool ranInTheMiddle = false;
  bool ended = false;
  dispatch().mainQueue().async([&] {
    std::atomic<bool> ran{false};
    dispatch().globalQueue(DispatchQueuePriority::standard).async([&ran] {
      dispatch().globalQueue(DispatchQueuePriority::background).async([&ran] { ran = true; });
    });
    ranInTheMiddle = eventually([&ran] { return ran.load(); });
    ended = true;
  });
  EXPECT_TRUE(main.runUntil([&ended] { return ended; }));
  EXPECT_TRUE(ranInTheMiddle);
}

TEST(LinuxDispatchBackgroundQueue, SyncOnTheMainThreadDoesNotWaitForItsLoop) {
  const MainThread main;
  bool ran = false;
  dispatch().globalQueue(DispatchQueuePriority::background).async([] {});
  dispatch().globalQueue(DispatchQueuePriority::background).sync([&ran] { ran = true; });
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace kx
