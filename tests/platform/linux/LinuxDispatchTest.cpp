#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/linux/LinuxDispatch.h"
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

TEST(LinuxDispatchMainQueue, SyncReleasesWhatTheTaskHoldsOnTheMainThread) {
  struct Held {
    explicit Held(std::promise<bool> &promise) : released(promise) {}
    ~Held() { released.set_value(dispatch().isMainThread()); }
    std::promise<bool> &released;
  };
  std::promise<bool> released;
  dispatch().globalQueue(DispatchQueuePriority::standard).async([&released] {
    dispatch().mainQueue().sync([held = std::make_shared<Held>(released)] {});
    dispatch().mainQueue().async([] {});
  });
  auto onMainThread = released.get_future();
  EXPECT_TRUE(MainThread().runUntil([&onMainThread] {
    return onMainThread.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }));
  EXPECT_TRUE(onMainThread.get());
}

TEST(LinuxDispatchGlobalQueues, RunTasksOffTheThreadThatAddsThem) {
  const MainThread mainThread;
  for (const auto priority : priorities) {
    std::promise<std::pair<std::thread::id, bool>> ran;
    dispatch().globalQueue(priority).async([&ran] {
      ran.set_value({std::this_thread::get_id(), dispatch().isMainThread()});
    });
    const auto [thread, main] = ran.get_future().get();
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_FALSE(main);
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
    DispatchQueue &queue = dispatch().globalQueue(DispatchQueuePriority::background);
    queue.async([&queue, &ended] { queue.sync([&ended] { ++ended; }); });
  }
  EXPECT_TRUE(eventually([&ended] { return ended == tasksNumber; }));
}

TEST(LinuxDispatchGlobalQueues, WaitForOneAnother) {
  std::atomic<bool> ended{false};
  dispatch().globalQueue(DispatchQueuePriority::background).async([&ended] {
    dispatch().globalQueue(DispatchQueuePriority::standard).sync([&ended] { ended = true; });
  });
  EXPECT_TRUE(eventually([&ended] { return ended.load(); }));
}

}  // namespace
}  // namespace kx
