// Timers on the main run loop.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>

#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/RunLoop.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

/// A target for timers.
class TimerTarget : public Object {
 public:
  void fire(const std::shared_ptr<RunLoopTimer> &timer) {
    wasValid = timer != nullptr && timer->isValid();
    latest = timer;
    ++firings;
    if (invalidates) timer->invalidate();
    if (throws) throw std::runtime_error("thrown by an action");
  }

  static Selector selector() { return Selector::of<&TimerTarget::fire>("fire:"); }

  std::atomic<int> firings{0};
  std::atomic<bool> wasValid{false};
  std::weak_ptr<RunLoopTimer> latest;
  bool throws = false;
  bool invalidates = false;
};

std::shared_ptr<RunLoopTimer> timerFor(const std::shared_ptr<Object> &target, double seconds,
                                       bool repeats = false) {
  return Platform::current().runLoops().timerWithTimeInterval(seconds, target, TimerTarget::selector(),
                                                              repeats);
}

void install(const std::shared_ptr<RunLoopTimer> &timer, RunLoopMode mode = RunLoopMode::commonModes) {
  Platform::current().runLoops().mainRunLoop()->addTimer(timer, mode);
}

TEST(AppleTimer, InTheCommonModesFiresWhileTheUserDrags) {
  const auto target = std::make_shared<TimerTarget>();
  install(timerFor(target, 0.01));
  EXPECT_TRUE(standin::trackUntil([&] { return target->firings == 1; }));
}

TEST(AppleTimer, InTheDefaultModeWaitsUntilTheUserHasDragged) {
  const auto inDefaultMode = std::make_shared<TimerTarget>();
  const auto inCommonModes = std::make_shared<TimerTarget>();
  install(timerFor(inDefaultMode, 0.01), RunLoopMode::defaultMode);
  install(timerFor(inCommonModes, 0.05));
  EXPECT_TRUE(standin::trackUntil([&] { return inCommonModes->firings == 1; }));
  EXPECT_EQ(inDefaultMode->firings, 0);
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return inDefaultMode->firings == 1; }));
}

TEST(AppleTimer, ThatFiresOnceIsNoLongerValidThen) {
  const auto target = std::make_shared<TimerTarget>();
  const auto timer = timerFor(target, 0.01);
  EXPECT_TRUE(timer->isValid());
  install(timer);
  EXPECT_TRUE(timer->isValid());
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return target->firings == 1; }));
  EXPECT_FALSE(target->wasValid);
  EXPECT_FALSE(timer->isValid());
}

TEST(AppleTimer, ThatRepeatsFiresAgainAndStaysValid) {
  const auto target = std::make_shared<TimerTarget>();
  const auto timer = timerFor(target, 0.01, true);
  install(timer);
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return target->firings >= 3; }));
  EXPECT_TRUE(target->wasValid);
  EXPECT_TRUE(timer->isValid());
  timer->invalidate();
}

TEST(AppleTimer, ThatIsNotInstalledNeverFires) {
  const auto target = std::make_shared<TimerTarget>();
  const auto other = std::make_shared<TimerTarget>();
  const auto timer = timerFor(target, 0.001);
  install(timerFor(other, 0.05));
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return other->firings == 1; }));
  EXPECT_EQ(target->firings, 0);
}

TEST(AppleTimer, KeepsItsTargetUntilItHasFired) {
  auto target = std::make_shared<TimerTarget>();
  const std::weak_ptr<TimerTarget> weak = target;
  install(timerFor(target, 0.01));
  target.reset();
  EXPECT_FALSE(weak.expired());
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return weak.expired(); }));
}

TEST(AppleTimer, KeepsItsTargetUntilItIsInvalidated) {
  auto target = std::make_shared<TimerTarget>();
  const std::weak_ptr<TimerTarget> weak = target;
  const auto timer = timerFor(target, 3600, true);
  install(timer);
  target.reset();
  EXPECT_FALSE(weak.expired());
  timer->invalidate();
  EXPECT_FALSE(timer->isValid());
  EXPECT_TRUE(weak.expired());
}

TEST(AppleTimer, IsInvalidatedOnAnyThread) {
  const auto target = std::make_shared<TimerTarget>();
  const auto other = std::make_shared<TimerTarget>();
  const auto timer = timerFor(target, 0.02, true);
  install(timer);
  std::thread([&timer] {
    @autoreleasepool {
      timer->invalidate();
      timer->invalidate();
    }
  }).join();
  EXPECT_FALSE(timer->isValid());
  install(timerFor(other, 0.1));
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return other->firings == 1; }));
  EXPECT_EQ(target->firings, 0);
}

TEST(AppleTimer, IsInstalledFromAnyThread) {
  const auto target = std::make_shared<TimerTarget>();
  std::thread([&target] {
    @autoreleasepool {
      install(timerFor(target, 0.01));
    }
  }).join();
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return target->firings == 1; }));
}

TEST(AppleTimer, IsTakenOffTheRunLoopWhenItIsInvalidated) {
  const auto target = std::make_shared<TimerTarget>();
  const auto timer = timerFor(target, 3600, true);
  install(timer);
  EXPECT_EQ(standin::installedTimers(), 1);
  std::thread([&timer] {
    @autoreleasepool {
      timer->invalidate();
    }
  }).join();
  standin::settleMainLoop();
  EXPECT_EQ(standin::installedTimers(), 0);
}

TEST(AppleTimer, LeavesNothingBehindOnceItHasFired) {
  const auto target = std::make_shared<TimerTarget>();
  @autoreleasepool {
    install(timerFor(target, 0.01));
    EXPECT_EQ(standin::aliveTimers(), 1);
  }
  EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::aliveTimers() == 0; }));
  EXPECT_EQ(target->firings, 1);
}

TEST(AppleTimer, LeavesNothingBehindOnceItIsInvalidated) {
  const auto target = std::make_shared<TimerTarget>();
  @autoreleasepool {
    const auto timer = timerFor(target, 3600, true);
    install(timer);
    timer->invalidate();
  }
  EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::aliveTimers() == 0; }));
}

TEST(AppleTimer, LeavesNothingBehindWhenItIsNeverInstalled) {
  @autoreleasepool {
    EXPECT_TRUE(timerFor(std::make_shared<TimerTarget>(), 3600, true)->isValid());
  }
  EXPECT_EQ(standin::aliveTimers(), 0);
}

TEST(AppleTimer, ThatIsInvalidatedIsNotInstalled) {
  const auto target = std::make_shared<TimerTarget>();
  const auto timer = timerFor(target, 0.01, true);
  timer->invalidate();
  install(timer);
  EXPECT_EQ(standin::installedTimers(), 0);
  EXPECT_FALSE(timer->isValid());
}

TEST(AppleTimer, MayInvalidateItselfInItsAction) {
  const auto target = std::make_shared<TimerTarget>();
  const auto other = std::make_shared<TimerTarget>();
  target->invalidates = true;
  install(timerFor(target, 0.01, true));
  install(timerFor(other, 0.2));
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return other->firings == 1; }));
  EXPECT_EQ(target->firings, 1);
}

TEST(AppleTimer, HandsItselfToItsAction) {
  const auto target = std::make_shared<TimerTarget>();
  const auto timer = timerFor(target, 0.01, true);
  install(timer);
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return target->firings >= 1; }));
  EXPECT_EQ(target->latest.lock(), timer);
  timer->invalidate();
}

TEST(AppleTimer, FiresAfterItsTime) {
  const auto target = std::make_shared<TimerTarget>();
  const auto began = std::chrono::steady_clock::now();
  install(timerFor(target, 0.3));
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return target->firings == 1; }));
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(290));
}

TEST(AppleTimer, SurvivesWhatItsActionThrows) {
  const auto target = std::make_shared<TimerTarget>();
  target->throws = true;
  const auto timer = timerFor(target, 0.01, true);
  install(timer);
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return target->firings >= 2; }));
  timer->invalidate();
}

TEST(AppleRunLoop, OfTheMainThreadIsAlwaysTheSame) {
  auto &runLoops = Platform::current().runLoops();
  EXPECT_EQ(runLoops.currentRunLoop(), runLoops.mainRunLoop());
  std::thread([&runLoops] {
    @autoreleasepool {
      EXPECT_NE(runLoops.currentRunLoop(), runLoops.mainRunLoop());
    }
  }).join();
}

TEST(AppleRunLoop, OfTheMainThreadIsThatWhoeverAsksFirst) {
  std::thread([] {
    @autoreleasepool {
      EXPECT_NE(Platform::current().runLoops().mainRunLoop(), nullptr);
    }
  }).join();
  auto &runLoops = Platform::current().runLoops();
  EXPECT_EQ(runLoops.currentRunLoop(), runLoops.mainRunLoop());
  const auto target = std::make_shared<TimerTarget>();
  install(timerFor(target, 0.01));
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return target->firings == 1; }));
}

TEST(AppleRunLoop, OfAnotherThreadTakesTimersThere) {
  const auto target = std::make_shared<TimerTarget>();
  std::thread([&target] {
    @autoreleasepool {
      auto &runLoops = Platform::current().runLoops();
      runLoops.currentRunLoop()->addTimer(timerFor(target, 0.01), RunLoopMode::defaultMode);
      NSDate *const end =
          [NSDate dateWithTimeIntervalSinceNow:static_cast<double>(standin::patience().count())];
      while (target->firings == 0 && end.timeIntervalSinceNow > 0)
        [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:end];
    }
  }).join();
  EXPECT_EQ(target->firings, 1);
}

TEST(AppleRunLoop, OfAnotherThreadIsLetGo) {
  std::thread([] {
    @autoreleasepool {
      const auto runLoop = Platform::current().runLoops().currentRunLoop();
      EXPECT_EQ(standin::heldRunLoops(false), 1);
    }
  }).join();
  EXPECT_EQ(standin::heldRunLoops(false), 0);
  EXPECT_EQ(standin::heldRunLoops(true), 1);
}

}  // namespace
}  // namespace kx
