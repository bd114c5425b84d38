// Queues of dispatch, and the main operation queue.

#import <Foundation/Foundation.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/OperationQueue.h"
#include "KXPublisher/platform/Platform.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

Dispatch &dispatch() {
  return Platform::current().dispatch();
}

TEST(AppleDispatch, HasTheGlobalQueueOfEachPriority) {
  const std::pair<DispatchQueuePriority, long> priorities[] = {{DispatchQueuePriority::high, 2},
                                                               {DispatchQueuePriority::standard, 0},
                                                               {DispatchQueuePriority::low, -2},
                                                               {DispatchQueuePriority::background, -32768}};
  for (const auto &[priority, systemPriority] : priorities) {
    std::atomic<long> ranOn{standin::notAGlobalQueue};
    dispatch().globalQueue(priority).async([&ranOn] {
      EXPECT_FALSE(dispatch().isMainThread());
      ranOn = standin::currentQueuePriority();
    });
    EXPECT_TRUE(standin::runMainLoopUntil([&ranOn] { return ranOn != standin::notAGlobalQueue; }));
    EXPECT_EQ(ranOn, systemPriority);
  }
}

TEST(AppleDispatch, RunsTasksOfTheMainQueueOnTheMainThread) {
  EXPECT_TRUE(dispatch().isMainThread());
  std::atomic<int> ran{0};
  std::thread worker([&ran] {
    @autoreleasepool {
      dispatch().mainQueue().async([&ran] {
        EXPECT_TRUE(dispatch().isMainThread());
        ++ran;
      });
      dispatch().mainQueue().sync([&ran] {
        EXPECT_TRUE(dispatch().isMainThread());
        EXPECT_EQ(ran, 1);
        ++ran;
      });
      EXPECT_EQ(ran, 2);
      ++ran;
    }
  });
  EXPECT_EQ(ran, 0);
  EXPECT_TRUE(standin::runMainLoopUntil([&ran] { return ran == 3; }));
  worker.join();
}

TEST(AppleDispatch, ReleasesWhatATaskHolds) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> weak = held;
  dispatch().mainQueue().async([held] { EXPECT_EQ(*held, 1); });
  held.reset();
  EXPECT_FALSE(weak.expired());
  EXPECT_TRUE(standin::runMainLoopUntil([&weak] { return weak.expired(); }));
}

TEST(AppleDispatch, EndsWhatATaskThrows) {
  dispatch().mainQueue().async([] { throw std::runtime_error("thrown by a task"); });
  dispatch().mainQueue().async([] { [NSException raise:NSGenericException format:@"raised by a task"]; });
  standin::settleMainLoop();
  std::atomic<bool> cameBack{false};
  std::thread worker([&cameBack] {
    @autoreleasepool {
      dispatch().mainQueue().sync([] { [NSException raise:NSGenericException format:@"raised by a task"]; });
    }
    cameBack = true;
  });
  EXPECT_TRUE(standin::runMainLoopUntil([&cameBack] { return cameBack.load(); }));
  worker.join();
}

TEST(AppleMainOperationQueue, RunsOperationsOnTheMainThread) {
  const auto queue = Platform::current().mainOperationQueue();
  std::atomic<int> ran{0};
  std::thread([&] {
    @autoreleasepool {
      queue->addOperation([&ran] {
        EXPECT_TRUE([NSThread isMainThread]);
        ++ran;
      });
    }
  }).join();
  EXPECT_TRUE(standin::runMainLoopUntil([&ran] { return ran == 1; }));
}

TEST(AppleMainOperationQueue, EndsWhatAnOperationThrows) {
  const auto queue = Platform::current().mainOperationQueue();
  queue->addOperation([] { throw std::runtime_error("thrown by an operation"); });
  std::atomic<bool> ran{false};
  queue->addOperation([&ran] { ran = true; });
  EXPECT_TRUE(standin::runMainLoopUntil([&ran] { return ran.load(); }));
}

}  // namespace
}  // namespace kx
