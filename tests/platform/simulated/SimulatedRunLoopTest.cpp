#include <vector>

#include "KXPublisher/platform/simulated/SimulatedRunLoop.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

class Target : public Object {
 public:
  explicit Target(SimulatedPlatform &device) : device_(device) {}

  void fire(const std::shared_ptr<RunLoopTimer> &timer) {
    times.push_back(device_.scheduler.uptime());
    onMainThread = device_.scheduler.isMainThread();
    validInAction = timer->isValid();
  }

  std::vector<double> times;
  bool onMainThread = false;
  bool validInAction = false;

 private:
  SimulatedPlatform &device_;
};

class SimulatedRunLoopTest : public SimulatedTest {
 protected:
  std::shared_ptr<Target> target = std::make_shared<Target>(device);

  std::shared_ptr<RunLoopTimer> make(double interval, bool repeats) {
    return device.runLoopService.timerWithTimeInterval(interval, target, Selector::of<&Target::fire>("fire:"),
                                                       repeats);
  }
  std::shared_ptr<RunLoopTimer> install(double interval, bool repeats) {
    const auto timer = make(interval, repeats);
    device.runLoopService.mainRunLoop()->addTimer(timer, RunLoopMode::commonModes);
    return timer;
  }
};

TEST_F(SimulatedRunLoopTest, FiresAOneShotTimerOnceOnTheMainThread) {
  const auto timer = install(5, false);
  EXPECT_TRUE(timer->isValid());
  device.advance(20);
  EXPECT_EQ(target->times, (std::vector<double>{5}));
  EXPECT_TRUE(target->onMainThread);
}

TEST_F(SimulatedRunLoopTest, HasInvalidatedAOneShotTimerWhenItsActionRuns) {
  const auto timer = install(5, false);
  device.advance(5);
  EXPECT_FALSE(target->validInAction);
  EXPECT_FALSE(timer->isValid());
}

TEST_F(SimulatedRunLoopTest, KeepsARepeatingTimerValidInItsAction) {
  install(5, true);
  device.advance(5);
  EXPECT_TRUE(target->validInAction);
}

TEST_F(SimulatedRunLoopTest, FiresARepeatingTimerAtMultiplesOfItsPeriod) {
  install(0.1, true);
  device.advance(3600);
  ASSERT_EQ(target->times.size(), 36000u);
  EXPECT_DOUBLE_EQ(target->times.back(), 3600);
}

TEST_F(SimulatedRunLoopTest, CountsFromTheTimersCreation) {
  const auto timer = make(10, true);
  device.advance(4);
  device.runLoopService.mainRunLoop()->addTimer(timer, RunLoopMode::commonModes);
  device.advance(16);
  EXPECT_EQ(target->times, (std::vector<double>{10, 20}));
}

TEST_F(SimulatedRunLoopTest, NeverFiresATimerThatWasNotInstalled) {
  const auto timer = make(1, false);
  device.advance(10);
  EXPECT_TRUE(target->times.empty());
  EXPECT_TRUE(timer->isValid());
}

TEST_F(SimulatedRunLoopTest, NeverFiresAnInvalidatedTimer) {
  install(5, true)->invalidate();
  device.advance(20);
  EXPECT_TRUE(target->times.empty());
}

TEST_F(SimulatedRunLoopTest, KeepsTheTargetAliveUntilTheTimerIsInvalid) {
  const std::weak_ptr<Target> weak = target;
  const auto repeating = install(5, true);
  const auto oneShot = install(5, false);
  target = nullptr;
  repeating->invalidate();
  EXPECT_FALSE(weak.expired());
  device.advance(6);
  EXPECT_TRUE(weak.expired());
}

TEST_F(SimulatedRunLoopTest, IgnoresAChangeOfTheWallClock) {
  install(5, false);
  device.clockService.atSwitchOn += 86400;
  device.advance(4.9);
  EXPECT_TRUE(target->times.empty());
  device.advance(0.2);
  EXPECT_EQ(target->times.size(), 1u);
}

TEST_F(SimulatedRunLoopTest, NeverRunsTheLoopOfAWorkerThread) {
  device.scheduler.globalQueue(DispatchQueuePriority::standard).async([this] {
    EXPECT_NE(device.runLoopService.currentRunLoop(), device.runLoopService.mainRunLoop());
    device.runLoopService.currentRunLoop()->addTimer(make(1, true), RunLoopMode::defaultMode);
  });
  device.advance(10);
  EXPECT_TRUE(target->times.empty());
  EXPECT_EQ(device.runLoopService.currentRunLoop(), device.runLoopService.mainRunLoop());
}

}  // namespace
}  // namespace kx
