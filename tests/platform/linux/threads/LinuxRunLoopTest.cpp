#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/threads/LinuxRunLoop.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

/// Counts, and remembers the thread that it was last called on.
class Target : public Object {
 public:
  void fire(const std::shared_ptr<RunLoopTimer> &timer) {
    thread = std::this_thread::get_id();
    wasValid = timer->isValid();
    ++fired;
  }

  std::atomic<std::thread::id> thread;
  std::atomic<bool> wasValid{false};
  std::atomic<int> fired{0};
};

class LinuxRunLoopTest : public testing::Test {
 protected:
  std::shared_ptr<RunLoopTimer> timer(double timeInterval, const std::shared_ptr<Object> &target,
                                      bool repeats = false) {
    return runLoops.timerWithTimeInterval(timeInterval, target, Selector::of<&Target::fire>("fire:"),
                                          repeats);
  }
  void install(const std::shared_ptr<RunLoopTimer> &timer) {
    runLoops.mainRunLoop()->addTimer(timer, RunLoopMode::commonModes);
  }

  LinuxRunLoopService runLoops;
  LinuxRunLoop &main = *runLoops.linuxMainRunLoop();
};

TEST_F(LinuxRunLoopTest, RunsTasksOfManyThreadsOnTheMainThreadInTheOrderOfEach) {
  constexpr int threadsNumber = 4;
  constexpr int tasksNumber = 2000;
  std::array<std::vector<int>, threadsNumber> ran;  // changed by the main thread alone, without any lock
  std::vector<std::thread> threads;
  const auto mainThread = std::this_thread::get_id();
  for (auto &tasks : ran) {
    threads.emplace_back([&tasks, mainThread, this] {
      for (int i = 0; i < tasksNumber; ++i) {
        main.perform([&tasks, mainThread, number = std::make_unique<int>(i).release()] {
          if (std::this_thread::get_id() == mainThread) tasks.push_back(*number);
          delete number;
        });
      }
    });
  }
  EXPECT_TRUE(MainThread().runUntil([&ran] {
    return std::all_of(ran.begin(), ran.end(), [](const auto &tasks) { return tasks.size() == tasksNumber; });
  }));
  for (std::thread &thread : threads) thread.join();
  for (const auto &tasks : ran) EXPECT_TRUE(std::is_sorted(tasks.begin(), tasks.end()));
}

TEST_F(LinuxRunLoopTest, WakesTheLoopThatWaits) {
  // With nothing else that could: the limit of the test's patience is far away.
  std::atomic<bool> ran{false};
  std::atomic<bool> waits{false};
  std::thread other([&] {
    while (!waits) std::this_thread::yield();
    std::this_thread::sleep_for(
        std::chrono::milliseconds(50));  // the loop is in its poll by now, most likely
    main.perform([&ran] { ran = true; });
  });
  const MainThread thread;
  waits = true;
  EXPECT_TRUE(thread.runUntil([&ran] { return ran.load(); }));
  other.join();
}

TEST_F(LinuxRunLoopTest, TasksThatSubmitTasksLeaveTheLoopToOthersToo) {
  const MainThread thread;
  bool ended = false;
  std::function<void()> again = [&] {
    if (!ended) main.perform(again);
  };
  main.perform(again);
  bool otherRan = false;
  GSource *const other = g_timeout_source_new(0);
  g_source_set_callback(
      other,
      [](gpointer flag) -> gboolean {
        *static_cast<bool *>(flag) = true;
        return G_SOURCE_REMOVE;
      },
      &otherRan, nullptr);
  g_source_attach(other, nullptr);
  EXPECT_TRUE(thread.runUntil([&otherRan] { return otherRan; }));
  ended = true;
  g_source_unref(other);
  EXPECT_TRUE(thread.runUntil([] { return g_main_context_pending(nullptr) == FALSE; }));
}

TEST_F(LinuxRunLoopTest, ATaskThatThrowsIsReportedAndTheNextOneRuns) {
  const MainThread thread;
  bool ran = false;
  testing::internal::CaptureStderr();
  main.perform([] { throw std::runtime_error("the reason"); });
  main.perform([] { throw 1; });
  main.perform([&ran] { ran = true; });
  EXPECT_TRUE(thread.runUntil([&ran] { return ran; }));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::AllOf(testing::HasSubstr("An exception ended a task: the reason\n"),
                             testing::HasSubstr("An exception ended a task: not a std::exception\n")));
}

TEST_F(LinuxRunLoopTest, ATaskReleasesWhatItHoldsBeforeTheNextOneRuns) {
  const MainThread thread;
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watched = held;
  bool released = false;
  bool ran = false;
  main.perform([held = std::move(held)] {});
  main.perform([&] {
    released = watched.expired();
    ran = true;
  });
  EXPECT_TRUE(thread.runUntil([&ran] { return ran; }));
  EXPECT_TRUE(released);
}

TEST_F(LinuxRunLoopTest, TasksRunOneAfterTheOtherEvenIfOneRunsALoopOfItsOwn) {
  const MainThread thread;
  std::vector<std::string> order;
  main.perform([&] {
    order.emplace_back("first begins");
    main.perform([&order] { order.emplace_back("second"); });
    for (int i = 0; i < 10; ++i) g_main_context_iteration(nullptr, FALSE);
    order.emplace_back("first ends");
  });
  EXPECT_TRUE(thread.runUntil([&order] { return order.size() == 3; }));
  EXPECT_THAT(order, testing::ElementsAre("first begins", "first ends", "second"));
}

TEST_F(LinuxRunLoopTest, TheLoopOfADialogueServesTasksAndTimers) {
  // A loop that the host runs inside one of its own callbacks.
  const MainThread thread;
  const auto target = std::make_shared<Target>();
  struct Dialogue {
    const MainThread &thread;
    Target &target;
    bool ended;
  } dialogue{thread, *target, false};
  install(timer(0.001, target));
  g_idle_add(
      [](gpointer data) -> gboolean {
        auto &own = *static_cast<Dialogue *>(data);
        own.ended = own.thread.runUntil([&own] { return own.target.fired == 1; });
        return G_SOURCE_REMOVE;
      },
      &dialogue);
  EXPECT_TRUE(thread.runUntil([&dialogue] { return dialogue.ended; }));
}

TEST_F(LinuxRunLoopTest, WhatATimerHandsOverRunsInTheSameTurnOfTheLoop) {
  class HandsOver : public Object {
   public:
    explicit HandsOver(LinuxRunLoop &runLoop) : loop(runLoop) {}
    void fire(const std::shared_ptr<RunLoopTimer> & /*timer*/) {
      fired = true;
      loop.perform([this] { ran = true; });
    }

    LinuxRunLoop &loop;
    bool fired = false;
    bool ran = false;
  };
  const MainThread thread;
  const auto target = std::make_shared<HandsOver>(main);
  install(runLoops.timerWithTimeInterval(0.001, target, Selector::of<&HandsOver::fire>("fire:"),
                                         /*repeats=*/false));
  while (!target->fired) g_main_context_iteration(nullptr, TRUE);
  EXPECT_TRUE(target->ran);
}

TEST_F(LinuxRunLoopTest, NobodyRunsALoopThatDoesNotRun) {
  EXPECT_FALSE(main.runsOnCurrentThread());
  {
    const MainThread thread;
    EXPECT_TRUE(main.runsOnCurrentThread());
    bool elsewhere = true;
    std::thread([&] { elsewhere = main.runsOnCurrentThread(); }).join();
    EXPECT_FALSE(elsewhere);
  }
  EXPECT_FALSE(main.runsOnCurrentThread());
}

TEST_F(LinuxRunLoopTest, TheCurrentRunLoopIsThatOfTheThreadsOwnContext) {
  EXPECT_EQ(runLoops.currentRunLoop(), runLoops.mainRunLoop());
  std::thread([this] { EXPECT_EQ(runLoops.currentRunLoop(), runLoops.mainRunLoop()); }).join();

  GMainContext *const context = g_main_context_new();
  std::thread([this, context] {
    g_main_context_push_thread_default(context);
    const auto loop = runLoops.currentRunLoop();
    EXPECT_NE(loop, runLoops.mainRunLoop());
    EXPECT_EQ(loop, runLoops.currentRunLoop());
    const auto linuxLoop = std::dynamic_pointer_cast<LinuxRunLoop>(loop);
    ASSERT_NE(linuxLoop, nullptr);
    EXPECT_EQ(linuxLoop->context(), context);
    g_main_context_pop_thread_default(context);
  }).join();
  g_main_context_unref(context);
  EXPECT_EQ(main.context(), g_main_context_default());
}

TEST_F(LinuxRunLoopTest, ATimerOnAnotherThreadsLoopFiresThere) {
  const auto target = std::make_shared<Target>();
  std::thread([this, target] {
    GMainContext *const context = g_main_context_new();
    g_main_context_push_thread_default(context);
    runLoops.currentRunLoop()->addTimer(timer(0.001, target), RunLoopMode::defaultMode);
    while (target->fired == 0) g_main_context_iteration(context, TRUE);
    EXPECT_EQ(target->thread.load(), std::this_thread::get_id());
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
  }).join();
  EXPECT_EQ(target->fired, 1);
}

TEST_F(LinuxRunLoopTest, ATimerThatAnotherThreadAddsFiresOnTheMainThread) {
  const MainThread thread;
  const auto target = std::make_shared<Target>();
  std::thread([this, target] { install(timer(0.001, target)); }).join();
  EXPECT_TRUE(thread.runUntil([&target] { return target->fired == 1; }));
  EXPECT_EQ(target->thread.load(), std::this_thread::get_id());
  EXPECT_FALSE(target->wasValid);
}

TEST_F(LinuxRunLoopTest, AnyThreadMayInvalidateTimersWhileTheyFire) {
  const MainThread thread;
  const auto target = std::make_shared<Target>();
  constexpr int rounds = 100;
  std::atomic<bool> ended{false};
  std::thread other([&] {
    for (int i = 0; i < rounds; ++i) {
      const auto fired = target->fired.load();
      const auto repeating = timer(0.0001, target, /*repeats=*/true);
      install(repeating);
      EXPECT_TRUE(eventually([&] { return target->fired > fired; }));
      EXPECT_TRUE(repeating->isValid());
      repeating->invalidate();
      EXPECT_FALSE(repeating->isValid());
    }
    ended = true;
    main.perform([] {});
  });
  EXPECT_TRUE(thread.runUntil([&ended] { return ended.load(); }));
  other.join();
  // No timer is left, nor a reference to its target.
  const int fired = target->fired;
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
  }
  EXPECT_EQ(target->fired, fired);
  EXPECT_EQ(target.use_count(), 1);
}

TEST_F(LinuxRunLoopTest, ALoopThatWaitsForATimerForgetsItAsSoonAsItIsInvalid) {
  // It need not wake for nothing later on, when all else sleeps.
  const auto never = timer(86400, std::make_shared<Target>());
  install(never);
  std::atomic<bool> waits{false};
  std::thread other([&] {
    while (!waits) std::this_thread::yield();
    std::this_thread::sleep_for(
        std::chrono::milliseconds(50));  // the loop is in its poll by now, most likely
    never->invalidate();
  });
  const MainThread thread;
  waits = true;
  EXPECT_TRUE(thread.runUntil([&never] { return !never->isValid(); }));
  other.join();
}

TEST_F(LinuxRunLoopTest, AnActionThatThrowsIsReportedAndItsTimerGoesOn) {
  class Thrower : public Object {
   public:
    void fire(const std::shared_ptr<RunLoopTimer> & /*timer*/) {
      ++fired;
      throw std::runtime_error("an action's reason");
    }
    int fired = 0;
  };
  const MainThread thread;
  const auto target = std::make_shared<Thrower>();
  testing::internal::CaptureStderr();
  const auto timer =
      runLoops.timerWithTimeInterval(0.001, target, Selector::of<&Thrower::fire>("fire:"), /*repeats=*/true);
  install(timer);
  EXPECT_TRUE(thread.runUntil([&target] { return target->fired == 2; }));
  timer->invalidate();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("ended a task: an action's reason\n"));
}

}  // namespace
}  // namespace kx
