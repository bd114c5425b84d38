#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "KXPublisher/platform/simulated/SimulatedScheduler.h"

namespace kx {
namespace {

using Order = std::vector<std::string>;

/// What runs first when several queues have ready tasks.
Order orderWithSeed(std::uint64_t seed) {
  SimulatedScheduler scheduler(seed);
  Order order;
  for (int i = 0; i < 3; ++i) {
    scheduler.mainQueue().async([&order, i] { order.push_back("main " + std::to_string(i)); });
    scheduler.globalQueue(DispatchQueuePriority::standard).async([&order, i] {
      order.push_back("standard " + std::to_string(i));
    });
  }
  scheduler.runReadyTasks();
  return order;
}

TEST(SimulatedScheduler, RunsReadyTasksFirstInFirstOutWithoutASeed) {
  EXPECT_EQ(orderWithSeed(0),
            (Order{"main 0", "standard 0", "main 1", "standard 1", "main 2", "standard 2"}));
}

TEST(SimulatedScheduler, RepeatsItselfWithTheSameSeed) {
  EXPECT_EQ(orderWithSeed(7), orderWithSeed(7));
}

TEST(SimulatedScheduler, FindsOtherOrdersWithOtherSeeds) {
  std::vector<Order> orders;
  for (std::uint64_t seed = 1; seed <= 30; ++seed) orders.push_back(orderWithSeed(seed));
  std::sort(orders.begin(), orders.end());
  EXPECT_GT(std::unique(orders.begin(), orders.end()) - orders.begin(), 10);
}

TEST(SimulatedScheduler, KeepsTheMainQueueInOrderWhateverTheSeed) {
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    Order order = orderWithSeed(seed);
    order.erase(std::remove_if(order.begin(), order.end(), [](const auto &line) { return line[0] != 'm'; }),
                order.end());
    EXPECT_EQ(order, (Order{"main 0", "main 1", "main 2"}));
  }
}

TEST(SimulatedScheduler, SometimesLetsAWorkerBeQuickerThanTheMainThread) {
  int quicker = 0;
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    SimulatedScheduler scheduler(seed);
    bool ran = false;
    scheduler.globalQueue(DispatchQueuePriority::background).async([&ran] { ran = true; });
    if (ran) ++quicker;
  }
  EXPECT_GT(quicker, 0);
  EXPECT_LT(quicker, 100);
}

TEST(SimulatedScheduler, RunsBackgroundTasksAtOnceWhenTold) {
  SimulatedScheduler scheduler(0);
  scheduler.setBackgroundTasksRunAtOnce(true);
  bool onMainThread = true;
  scheduler.globalQueue(DispatchQueuePriority::background).async([&] {
    onMainThread = scheduler.isMainThread();
  });
  EXPECT_FALSE(onMainThread);
  EXPECT_TRUE(scheduler.isMainThread());
}

TEST(SimulatedScheduler, RunsWhatIsDueAtItsTime) {
  SimulatedScheduler scheduler(0);
  std::vector<double> times;
  for (const double delay : {2.5, 1.0, 4.0}) {
    scheduler.after(delay, scheduler.mainQueue(), [&] { times.push_back(scheduler.uptime()); });
  }
  scheduler.advance(3);
  EXPECT_EQ(times, (std::vector<double>{1.0, 2.5}));
  EXPECT_EQ(scheduler.uptime(), 3);
  scheduler.advance(1);
  EXPECT_EQ(times, (std::vector<double>{1.0, 2.5, 4.0}));
}

TEST(SimulatedScheduler, RunsWhatBecomesDueMeanwhile) {
  SimulatedScheduler scheduler(0);
  int ran = 0;
  scheduler.after(1, scheduler.mainQueue(),
                  [&] { scheduler.after(1, scheduler.mainQueue(), [&] { ++ran; }); });
  scheduler.advance(2);
  EXPECT_EQ(ran, 1);
}

TEST(SimulatedScheduler, LetsAWorkerWaitForTheMainThread) {
  SimulatedScheduler scheduler(0);
  Order order;
  scheduler.globalQueue(DispatchQueuePriority::standard).async([&] {
    scheduler.mainQueue().async([&] { order.push_back("queued before"); });
    scheduler.mainQueue().sync([&] { order.push_back(scheduler.isMainThread() ? "on main" : "on worker"); });
    order.push_back(scheduler.isMainThread() ? "back on main" : "back on worker");
  });
  scheduler.runReadyTasks();
  EXPECT_EQ(order, (Order{"queued before", "on main", "back on worker"}));
}

TEST(SimulatedScheduler, DetectsTheMainThreadWaitingForItself) {
  SimulatedScheduler scheduler(0);
  EXPECT_THROW(scheduler.mainQueue().sync([] {}), SimulatedDeadlock);
  scheduler.mainQueue().async([&] { EXPECT_THROW(scheduler.mainQueue().sync([] {}), SimulatedDeadlock); });
  scheduler.runReadyTasks();
}

TEST(SimulatedScheduler, DetectsAWorkerThatWaitsForAMainThreadItInterrupted) {
  SimulatedScheduler scheduler(0);
  scheduler.setBackgroundTasksRunAtOnce(true);
  EXPECT_THROW(scheduler.globalQueue(DispatchQueuePriority::background).async([&] {
    scheduler.mainQueue().sync([] {});
  }),
               SimulatedDeadlock);
}

TEST(SimulatedScheduler, DetectsTasksWithoutEnd) {
  SimulatedScheduler scheduler(0);
  std::function<void()> again = [&] { scheduler.mainQueue().async(again); };
  again();
  EXPECT_THROW(scheduler.runReadyTasks(), SimulatedDeadlock);
}

TEST(SimulatedScheduler, LetsExceptionsOutAndGoesOn) {
  SimulatedScheduler scheduler(0);
  bool ran = false;
  scheduler.globalQueue(DispatchQueuePriority::high).async([] { throw std::runtime_error("broken"); });
  scheduler.globalQueue(DispatchQueuePriority::high).async([&] { ran = true; });
  EXPECT_THROW(scheduler.runReadyTasks(), std::runtime_error);
  EXPECT_TRUE(scheduler.isMainThread());
  scheduler.runReadyTasks();
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace kx
