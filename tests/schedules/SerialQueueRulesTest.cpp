#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "KXPublisher/platform/SerialOperationQueue.h"
#include "KXPublisher/platform/simulated/SimulatedScope.h"

namespace kx {
namespace {

constexpr std::uint64_t seeds = 2000;

/// Two threads that each replace what waits on a queue, again and again, while workers run it.
TEST(SerialQueueRules, TheLatestOfCancelAndAddAlwaysRunsAndNothingRunsTwiceOrAtOnce) {
  constexpr int threads = 2;
  constexpr int rounds = 5;
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    SimulatedScope scope(seed);
    const auto queue = std::make_shared<SerialOperationQueue>();
    std::vector<int> ran;
    int atOnce = 0;
    bool together = false;
    for (int thread = 0; thread < threads; ++thread) {
      scope.device.scheduler.globalQueue(DispatchQueuePriority::high).async([&, thread] {
        for (int round = 0; round < rounds; ++round) {
          queue->cancelAllOperations();
          queue->addOperation([&, number = thread * 100 + round] {
            together = together || ++atOnce > 1;
            scope.device.scheduler.yield();
            ran.push_back(number);
            --atOnce;
          });
        }
      });
    }
    scope.device.runReadyTasks();
    ASSERT_FALSE(together) << "seed " << seed;
    // What either thread added last was cancelled, if at all, by the other one's last.
    ASSERT_FALSE(ran.empty()) << "seed " << seed;
    const int last = ran.back() % 100;
    ASSERT_EQ(last, rounds - 1) << "seed " << seed;
    std::sort(ran.begin(), ran.end());
    ASSERT_EQ(std::adjacent_find(ran.begin(), ran.end()), ran.end()) << "seed " << seed;

    // And it is not dead.
    bool alive = false;
    queue->addOperation([&alive] { alive = true; });
    scope.device.runReadyTasks();
    ASSERT_TRUE(alive) << "seed " << seed;
  }
}

TEST(SerialQueueRules, AWorkerThatFindsNothingLeavesTheQueueAlive) {
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    SimulatedScope scope(seed);
    const auto queue = std::make_shared<SerialOperationQueue>();
    bool ran = false;
    queue->addOperation([] {});
    queue->cancelAllOperations();
    if (seed % 2 == 0) scope.device.runReadyTasks();
    queue->addOperation([&ran] { ran = true; });
    scope.device.runReadyTasks();
    ASSERT_TRUE(ran) << "seed " << seed;
  }
}

}  // namespace
}  // namespace kx
