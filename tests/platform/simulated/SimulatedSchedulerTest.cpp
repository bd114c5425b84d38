#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <optional>
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

/// In how many of a thousand seeds a background task runs before its submission returns.
int quickWorkers(std::optional<double> share) {
  int quicker = 0;
  for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
    bool ran = false;  // before the scheduler, which at its end runs what is ready
    SimulatedScheduler scheduler(seed);
    if (share) scheduler.setBackgroundTasksRunAtOnce(*share);
    scheduler.globalQueue(DispatchQueuePriority::background).async([&ran] { ran = true; });
    if (ran) ++quicker;
  }
  return quicker;
}

TEST(SimulatedScheduler, RarelyLetsABackgroundWorkerBeQuickerThanItsSubmitter) {
  EXPECT_GT(quickWorkers(std::nullopt), 0);
  EXPECT_LT(quickWorkers(std::nullopt), 12);
}

TEST(SimulatedScheduler, LetsABackgroundWorkerBeQuickerAsOftenAsAsked) {
  EXPECT_EQ(quickWorkers(0), 0);
  EXPECT_NEAR(quickWorkers(0.25), 250, 60);
  EXPECT_EQ(quickWorkers(1), 1000);
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

TEST(SimulatedScheduler, LetsAWorkerThatInterruptedTheMainThreadWaitForIt) {
  SimulatedScheduler scheduler(0);
  scheduler.setBackgroundTasksRunAtOnce(true);
  Order order;
  scheduler.globalQueue(DispatchQueuePriority::background).async([&] {
    order.push_back("begins");
    scheduler.mainQueue().sync([&] { order.push_back("on main"); });
    order.push_back("goes on");
  });
  EXPECT_EQ(order, (Order{"begins"}));
  EXPECT_EQ(scheduler.begunTasks(), 1u);
  scheduler.runReadyTasks();
  EXPECT_EQ(order, (Order{"begins", "on main", "goes on"}));
  EXPECT_EQ(scheduler.begunTasks(), 0u);
}

TEST(SimulatedScheduler, LetsTheMainThreadWaitForAWorker) {
  for (std::uint64_t seed = 0; seed <= 30; ++seed) {
    SimulatedScheduler scheduler(seed);
    Order order;
    scheduler.globalQueue(DispatchQueuePriority::standard).sync([&] {
      order.push_back(scheduler.isMainThread() ? "on main" : "on worker");
    });
    order.push_back(scheduler.isMainThread() ? "back on main" : "back on worker");
    EXPECT_EQ(order, (Order{"on worker", "back on main"}));
  }
}

/// Whether something of a worker comes between two lines of another thread, in how many of a hundred seeds.
int overtaken(bool onMainThread) {
  int count = 0;
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    SimulatedScheduler scheduler(seed);
    bool between = false;
    bool changed = false;
    const auto twoLines = [&] {
      scheduler.globalQueue(DispatchQueuePriority::standard).async([&changed] { changed = true; });
      const bool before = changed;
      scheduler.yield();
      between = changed != before;
    };
    if (onMainThread) {
      twoLines();
    } else {
      scheduler.globalQueue(DispatchQueuePriority::standard).async(twoLines);
    }
    scheduler.runReadyTasks();
    if (between) ++count;
  }
  return count;
}

TEST(SimulatedScheduler, SwitchesInTheMiddleOfAWorkersTask) {
  EXPECT_GT(overtaken(/*onMainThread=*/false), 3);
}

TEST(SimulatedScheduler, SwitchesInTheMiddleOfWhatTheMainThreadDoes) {
  EXPECT_GT(overtaken(/*onMainThread=*/true), 3);
}

TEST(SimulatedScheduler, NeverSwitchesWithoutASeed) {
  bool ran = false;
  SimulatedScheduler scheduler(0);
  scheduler.globalQueue(DispatchQueuePriority::standard).async([&ran] { ran = true; });
  for (int i = 0; i < 1000; ++i) scheduler.yield();
  EXPECT_FALSE(ran);
}

TEST(SimulatedScheduler, LetsWhatFallsDueAtTheSameInstantComeInAnyOrder) {
  std::vector<Order> orders;
  for (std::uint64_t seed = 0; seed <= 60; ++seed) {
    SimulatedScheduler scheduler(seed);
    Order order;
    for (const char *name : {"first", "second", "third"}) {
      scheduler.after(5, scheduler.mainQueue(), [&order, name] { order.push_back(name); });
    }
    scheduler.advance(5);
    if (seed == 0) {
      EXPECT_EQ(order, (Order{"first", "second", "third"}));
    }
    orders.push_back(order);
  }
  std::sort(orders.begin(), orders.end());
  EXPECT_EQ(std::unique(orders.begin(), orders.end()) - orders.begin(), 6);
}

TEST(SimulatedScheduler, RefusesTimeThatIsNone) {
  SimulatedScheduler scheduler(0);
  for (const double wrong :
       {-50.0, -1e-9, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    EXPECT_THROW(scheduler.advance(wrong), std::invalid_argument) << wrong;
    EXPECT_THROW(scheduler.after(wrong, scheduler.mainQueue(), [] {}), std::invalid_argument) << wrong;
  }
  EXPECT_EQ(scheduler.uptime(), 0);
  EXPECT_EQ(scheduler.laterTasks(), 0u);
}

TEST(SimulatedScheduler, RunsStepByStepAndTellsWhatIsDue) {
  SimulatedScheduler scheduler(0);
  EXPECT_EQ(scheduler.nextDue(), std::nullopt);
  int ran = 0;
  for (int i = 0; i < 2; ++i) scheduler.mainQueue().async([&ran] { ++ran; });
  scheduler.after(7, scheduler.mainQueue(), [&ran] { ++ran; });
  EXPECT_EQ(scheduler.nextDue(), 0);
  EXPECT_EQ(scheduler.readyTasks(), 2u);
  EXPECT_TRUE(scheduler.step());
  EXPECT_EQ(ran, 1);
  EXPECT_TRUE(scheduler.step());
  EXPECT_FALSE(scheduler.step());
  EXPECT_EQ(scheduler.nextDue(), 7);
  scheduler.advance(3);
  EXPECT_EQ(scheduler.nextDue(), 4);
  EXPECT_EQ(ran, 2);
}

TEST(SimulatedScheduler, RunsUntilIdleButForTimers) {
  SimulatedScheduler scheduler(0);
  int ran = 0;
  scheduler.after(
      600, scheduler.mainQueue(), [&ran] { ran += 100; }, SimulatedScheduler::Later::timer);
  scheduler.after(2, scheduler.mainQueue(), [&] {
    ++ran;
    scheduler.after(3, scheduler.mainQueue(), [&ran] { ++ran; });
  });
  scheduler.runUntilIdle();
  EXPECT_EQ(ran, 2);
  EXPECT_EQ(scheduler.uptime(), 5);
}

TEST(SimulatedScheduler, DropsWhatIsCancelled) {
  SimulatedScheduler scheduler(0);
  const auto held = std::make_shared<int>(0);
  const auto ticket = scheduler.after(5, scheduler.mainQueue(), [held] { ++*held; });
  scheduler.cancel(ticket);
  EXPECT_EQ(held.use_count(), 1);
  scheduler.advance(10);
  scheduler.cancel(ticket);
  EXPECT_EQ(*held, 0);
}

TEST(SimulatedScheduler, RunsNothingOfASuspendedProcess) {
  SimulatedScheduler scheduler(0);
  std::vector<double> times;
  scheduler.after(5, scheduler.mainQueue(), [&] { times.push_back(scheduler.uptime()); });
  scheduler.setSuspended(true);
  scheduler.advance(20);
  EXPECT_TRUE(times.empty());
  scheduler.setSuspended(false);
  scheduler.advance(0);
  EXPECT_EQ(times, (std::vector<double>{20}));
}

TEST(SimulatedScheduler, RunsWhatIsReadyToItsEndAndDropsTheRest) {
  const auto held = std::make_shared<int>(0);
  Order order;
  {
    SimulatedScheduler scheduler(0);
    scheduler.setBackgroundTasksRunAtOnce(true);
    scheduler.globalQueue(DispatchQueuePriority::background).async([&] {
      scheduler.mainQueue().sync([&] { order.push_back("on main"); });
      order.push_back("ends");
    });
    scheduler.after(1, scheduler.mainQueue(), [held, &order] { order.push_back("later"); });
    scheduler.finish();
    scheduler.mainQueue().async([held, &order] { order.push_back("too late"); });
    scheduler.advance(10);
  }
  EXPECT_EQ(order, (Order{"on main", "ends"}));
  EXPECT_EQ(held.use_count(), 1);
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
