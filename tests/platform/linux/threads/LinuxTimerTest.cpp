#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "platform/linux/threads/LinuxRunLoop.h"
#include "tests/platform/linux/threads/VirtualTime.h"

namespace kx {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;
using testing::Pointwise;

/// Writes down when it was called; does what the test wants then.
class Target : public Object {
 public:
  explicit Target(const VirtualTime &time) : time_(time) {}

  void fire(const std::shared_ptr<RunLoopTimer> &timer) {
    times.push_back(time_.now());
    if (action) action(timer);
  }

  std::vector<double> times;
  std::function<void(const std::shared_ptr<RunLoopTimer> &)> action;

 private:
  const VirtualTime &time_;
};

class LinuxTimerTest : public testing::Test {
 protected:
  /// The loop is the process's own and outlives the test: what was left on it would go on firing in the next
  /// one.
  ~LinuxTimerTest() override {
    for (const auto &weak : installed) {
      if (const auto timer = weak.lock()) timer->invalidate();
    }
  }
  std::shared_ptr<RunLoopTimer> timer(double timeInterval, bool repeats) {
    return runLoops.timerWithTimeInterval(timeInterval, target, Selector::of<&Target::fire>("fire:"),
                                          repeats);
  }
  std::shared_ptr<RunLoopTimer> install(const std::shared_ptr<RunLoopTimer> &timer) {
    runLoops.mainRunLoop()->addTimer(timer, RunLoopMode::commonModes);
    installed.push_back(timer);
    return timer;
  }
  /// Times are exact to the millisecond, in which the loop waits.
  void expectTimes(const std::vector<double> &times) {
    EXPECT_THAT(target->times, Pointwise(DoubleNear(0.0011), times));
  }

  VirtualTime time;
  LinuxRunLoopService runLoops;
  std::shared_ptr<Target> target = std::make_shared<Target>(time);
  std::vector<std::weak_ptr<RunLoopTimer>> installed;
};

TEST_F(LinuxTimerTest, AOneShotTimerFiresOnceAndIsInvalidInItsAction) {
  bool validInAction = true;
  target->action = [&validInAction](const auto &timer) { validInAction = timer->isValid(); };
  const auto oneShot = install(timer(5, false));
  EXPECT_TRUE(oneShot->isValid());
  time.run(60);
  expectTimes({5});
  EXPECT_FALSE(validInAction);
  EXPECT_FALSE(oneShot->isValid());
}

TEST_F(LinuxTimerTest, ATimerFiresWithItselfAsTheArgument) {
  std::shared_ptr<RunLoopTimer> fired;
  target->action = [&fired](const auto &timer) { fired = timer; };
  const auto oneShot = install(timer(5, false));
  time.run(5);
  EXPECT_EQ(fired, oneShot);
}

TEST_F(LinuxTimerTest, ARepeatingTimerIsValidInItsActionAndFiresEveryPeriod) {
  bool validInAction = false;
  target->action = [&validInAction](const auto &timer) { validInAction = timer->isValid(); };
  install(timer(600, true));
  time.run(1800);
  expectTimes({600, 1200, 1800});
  EXPECT_TRUE(validInAction);
}

TEST_F(LinuxTimerTest, APeriodThatIsNoWholeNumberAddsUpNoError) {
  install(timer(1.0 / 3, true));
  time.run(1000);
  ASSERT_EQ(target->times.size(), 3000U);
  EXPECT_NEAR(target->times.back(), 1000, 0.0011);
}

TEST_F(LinuxTimerTest, ALateFiringShiftsNoLaterOne) {
  install(timer(10, true));
  time.run(5);
  time.block(8);
  time.run(20);
  expectTimes({13, 20, 30});
}

TEST_F(LinuxTimerTest, FiringsThatWereMissedAreNotMadeUp) {
  install(timer(10, true));
  time.block(57);
  time.run(15);
  expectTimes({57, 60, 70});
}

TEST_F(LinuxTimerTest, AnActionThatTakesLongerThanThePeriodDelaysOneFiringAndMissesTheRest) {
  target->action = [this](const auto &) {
    if (target->times.size() == 1) time.block(25);
  };
  install(timer(10, true));
  time.run(50);
  expectTimes({10, 35, 40, 50});
}

TEST_F(LinuxTimerTest, NeitherTheWallClockNorASuspendedDeviceMovesATimer) {
  install(timer(10, true));
  install(timer(25, false));
  time.run(5);
  time.shiftWallClock(86400);
  time.run(10);
  time.shiftWallClock(-2 * 86400);
  time.run(15);
  expectTimes({10, 20, 25, 30});
}

TEST_F(LinuxTimerTest, TheIntervalCountsFromTheMakingOfTheTimer) {
  const auto repeating = timer(10, true);
  const auto late = timer(3, false);
  time.run(4);
  install(late);
  install(repeating);
  EXPECT_TRUE(target->times.empty());
  time.run(10);
  expectTimes({4, 10});
}

TEST_F(LinuxTimerTest, TimersFireInTheOrderInWhichTheyAreDue) {
  install(timer(3, false));
  install(timer(1, false));
  install(timer(2, false));
  time.block(10);
  std::vector<std::shared_ptr<RunLoopTimer>> order;
  target->action = [&order](const auto &timer) { order.push_back(timer); };
  const auto fourth = install(timer(0.001, false));
  time.run(1);
  ASSERT_EQ(order.size(), 4U);
  EXPECT_EQ(order.back(), fourth);
}

TEST_F(LinuxTimerTest, AnIntervalThatIsNotPositiveIsATenthOfAMillisecond) {
  for (const double interval : {0.0, -5.0, std::nan("")}) {
    target->times.clear();
    const double begin = time.now();
    const auto oneShot = install(timer(interval, false));
    time.run(1);
    ASSERT_EQ(target->times.size(), 1U) << interval;
    EXPECT_NEAR(target->times[0], begin + 0.0001, 0.0011);
  }
}

TEST_F(LinuxTimerTest, TheTiniestIntervalLeavesTheLoopToOthersToo) {
  install(timer(0, true));
  const auto tiniest = install(timer(std::numeric_limits<double>::denorm_min(), true));
  time.run(0.05);
  EXPECT_GE(target->times.size(), 2U);
  EXPECT_LE(target->times.size(), 200U);
}

TEST_F(LinuxTimerTest, AnIntervalWithoutEndNeverEnds) {
  for (const double interval :
       {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::max()}) {
    const auto never = install(timer(interval, true));
    time.run(1e6);
    EXPECT_TRUE(never->isValid());
  }
  EXPECT_TRUE(target->times.empty());
}

TEST_F(LinuxTimerTest, AnInvalidatedTimerNeverFires) {
  const auto oneShot = install(timer(5, false));
  const auto repeating = install(timer(10, true));
  oneShot->invalidate();
  time.run(25);
  repeating->invalidate();
  repeating->invalidate();
  time.run(25);
  expectTimes({10, 20});
}

TEST_F(LinuxTimerTest, ATimerMayInvalidateItselfAndOthersInItsAction) {
  const auto first = install(timer(10, true));
  const auto second = install(timer(10, true));
  target->action = [&](const auto &timer) {
    EXPECT_EQ(timer, first);
    first->invalidate();
    second->invalidate();
  };
  time.run(60);
  expectTimes({10});
}

TEST_F(LinuxTimerTest, AnActionMayInstallTheNextTimer) {
  target->action = [this](const auto &) {
    if (target->times.size() < 3) install(timer(5, false));
  };
  install(timer(5, false));
  time.run(60);
  expectTimes({5, 10, 15});
}

TEST_F(LinuxTimerTest, ATimerKeepsItsTargetUntilItIsInvalidated) {
  const std::weak_ptr<Target> watched = target;
  const auto repeating = install(timer(10, true));
  const auto notInstalled = timer(10, false);
  target = nullptr;
  EXPECT_FALSE(watched.expired());
  notInstalled->invalidate();
  EXPECT_FALSE(watched.expired());
  repeating->invalidate();
  EXPECT_TRUE(watched.expired());
}

TEST_F(LinuxTimerTest, AOneShotTimerLetsGoOfItsTargetWhenItHasFired) {
  const std::weak_ptr<Target> watched = target;
  const auto oneShot = install(timer(10, false));
  target = nullptr;
  time.run(9);
  EXPECT_FALSE(watched.expired());
  time.run(1);
  EXPECT_TRUE(watched.expired());
}

TEST_F(LinuxTimerTest, TheLoopKeepsATimerUntilItIsInvalid) {
  const std::weak_ptr<RunLoopTimer> oneShot = install(timer(5, false));
  std::weak_ptr<RunLoopTimer> repeating = install(timer(5, true));
  time.run(4);
  EXPECT_FALSE(oneShot.expired());
  time.run(4);
  EXPECT_TRUE(oneShot.expired());
  EXPECT_FALSE(repeating.expired());
  repeating.lock()->invalidate();
  EXPECT_TRUE(repeating.expired());
}

TEST_F(LinuxTimerTest, InstallingAgainChangesNothing) {
  const auto repeating = install(timer(10, true));
  install(repeating);
  time.run(25);
  expectTimes({10, 20});
}

TEST_F(LinuxTimerTest, InvalidTimersAndThoseOfAnotherPlatformAreIgnored) {
  class ForeignTimer : public RunLoopTimer {
   public:
    bool isValid() const override { return true; }
    void invalidate() override {}
  };
  const auto invalid = timer(5, false);
  invalid->invalidate();
  install(invalid);
  install(std::make_shared<ForeignTimer>());
  runLoops.mainRunLoop()->addTimer(nullptr, RunLoopMode::commonModes);
  time.run(60);
  EXPECT_TRUE(target->times.empty());
  EXPECT_FALSE(invalid->isValid());
}

TEST_F(LinuxTimerTest, TheLoopSleepsUntilTheNextTimerAndWithoutOneForEver) {
  time.run(3600);
  EXPECT_THAT(time.waits, ElementsAre(-1));

  const auto repeating = install(timer(600, true));
  const auto oneShot = install(timer(5, false));
  time.waits.clear();
  time.run(600);
  EXPECT_THAT(time.waits, ElementsAre(5000, 595000));

  repeating->invalidate();
  time.waits.clear();
  time.run(3600);
  EXPECT_THAT(time.waits, ElementsAre(-1));
}

}  // namespace
}  // namespace kx
