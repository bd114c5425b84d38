#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

#include "KXPublisher/providers/KXScheduler.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

class Target : public Object {
 public:
  void tick(const std::shared_ptr<RunLoopTimer> &timer) {
    ++ticks;
    lastTimer = timer;
  }
  void tock(const std::shared_ptr<RunLoopTimer> &) { ++tocks; }

  int ticks = 0;
  int tocks = 0;
  std::shared_ptr<RunLoopTimer> lastTimer;
};

class Namesake : public Target {
 public:
  std::string description() const override { return "the same"; }
};

const Selector tick = Selector::of<&Target::tick>("tick:");
const Selector tock = Selector::of<&Target::tock>("tock:");

class KXSchedulerTest : public SimulatedTest {
 protected:
  std::shared_ptr<KXScheduler> scheduler = KXScheduler::sharedInstance();
  std::shared_ptr<Target> target = std::make_shared<Target>();

  std::shared_ptr<RunLoopTimer> timer() const {
    return scheduler->scheduleInfoForTarget(target, tick)->timer();
  }
};

TEST_F(KXSchedulerTest, IsOneInAProcess) {
  EXPECT_EQ(KXScheduler::sharedInstance(), scheduler);
}

TEST_F(KXSchedulerTest, NamesAPairByDescriptionAndOperation) {
  EXPECT_EQ(KXScheduler::keyForTarget(target, tick), "t:" + target->description() + ",s:tick:");
  EXPECT_EQ(KXScheduler::keyForTarget(nullptr, tick), std::nullopt);
  EXPECT_EQ(KXScheduler::keyForTarget(target, Selector()), std::nullopt);
}

TEST_F(KXSchedulerTest, CallsTheTargetOncePerPeriodWithTheTimer) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  device.advance(9.9);
  EXPECT_EQ(target->ticks, 0);
  device.advance(20.1);
  EXPECT_EQ(target->ticks, 3);
  EXPECT_EQ(target->lastTimer, timer());
}

TEST_F(KXSchedulerTest, CallsOnTheMainThreadWhoeverScheduled) {
  device.scheduler.globalQueue(DispatchQueuePriority::standard).async([this] {
    scheduler->scheduleTimerForTarget(target, tick, 10);
  });
  device.advance(10);
  EXPECT_EQ(target->ticks, 1);
}

TEST_F(KXSchedulerTest, LeavesATimerOfTheSamePeriodUntouched) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  const auto first = timer();
  device.advance(6);
  scheduler->scheduleTimerForTarget(target, tick, 10);
  EXPECT_EQ(timer(), first);
  device.advance(4);
  EXPECT_EQ(target->ticks, 1);
}

TEST_F(KXSchedulerTest, ReplacesATimerOfAnotherPeriod) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  const auto first = timer();
  device.advance(6);
  scheduler->scheduleTimerForTarget(target, tick, 5);
  EXPECT_FALSE(first->isValid());
  EXPECT_NE(timer(), first);
  device.advance(4.9);
  EXPECT_EQ(target->ticks, 0);
  device.advance(0.1);
  EXPECT_EQ(target->ticks, 1);
  EXPECT_EQ(scheduler->scheduleInfoForTarget(target, tick)->timeInterval(), 5);
}

TEST_F(KXSchedulerTest, ReplacesATimerWhoseRecordSomebodyHolds) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  const auto held = scheduler->scheduleInfoForTarget(target, tick);
  scheduler->scheduleTimerForTarget(target, tick, 5);
  EXPECT_FALSE(held->timer()->isValid());
  device.advance(10);
  EXPECT_EQ(target->ticks, 2);
}

TEST_F(KXSchedulerTest, TakesAPeriodThatDiffersInItsLastBitForAnother) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  const auto first = timer();
  scheduler->scheduleTimerForTarget(target, tick, std::nextafter(10.0, 11.0));
  EXPECT_NE(timer(), first);
}

TEST_F(KXSchedulerTest, ReTimesThroughSetTimeIntervalAndStartsWhatWasAbsent) {
  scheduler->setTimeInterval(10, target, tick);
  device.advance(10);
  EXPECT_EQ(target->ticks, 1);
  scheduler->setTimeInterval(3, target, tick);
  device.advance(9);
  EXPECT_EQ(target->ticks, 4);
}

TEST_F(KXSchedulerTest, PausesAPairAndKeepsItsRecord) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  const auto record = scheduler->scheduleInfoForTarget(target, tick);
  scheduler->pauseTimerForTarget(target, tick);
  device.advance(100);
  EXPECT_EQ(target->ticks, 0);
  EXPECT_EQ(scheduler->scheduleInfoForTarget(target, tick), record);
  EXPECT_FALSE(record->timer()->isValid());
}

TEST_F(KXSchedulerTest, ResumesAPausedPairWithItsPeriod) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  scheduler->pauseTimerForTarget(target, tick);
  device.advance(7);
  scheduler->resumeTimerForTarget(target, tick);
  device.advance(9.9);
  EXPECT_EQ(target->ticks, 0);
  device.advance(0.1);
  EXPECT_EQ(target->ticks, 1);
}

TEST_F(KXSchedulerTest, LeavesARunningPairAloneOnResume) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  const auto first = timer();
  scheduler->resumeTimerForTarget(target, tick);
  EXPECT_EQ(timer(), first);
}

TEST_F(KXSchedulerTest, StartsAPausedPairThatIsScheduledAgainWithTheSamePeriod) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  const auto first = timer();
  scheduler->pauseTimerForTarget(target, tick);
  scheduler->scheduleTimerForTarget(target, tick, 10);
  EXPECT_NE(timer(), first);
  device.advance(10);
  EXPECT_EQ(target->ticks, 1);
}

TEST_F(KXSchedulerTest, DoesNothingToAnAbsentPair) {
  scheduler->pauseTimerForTarget(target, tick);
  scheduler->resumeTimerForTarget(target, tick);
  scheduler->removeTimerForTarget(target, tick);
  EXPECT_EQ(scheduler->scheduleInfoForTarget(target, tick), nullptr);
  device.advance(100);
  EXPECT_EQ(target->ticks, 0);
}

TEST_F(KXSchedulerTest, DoesNothingWithoutATargetOrAnOperation) {
  scheduler->scheduleTimerForTarget(nullptr, tick, 10);
  scheduler->scheduleTimerForTarget(target, Selector(), 10);
  scheduler->setTimeInterval(10, nullptr, tick);
  scheduler->setScheduleInfo(std::make_shared<KXScheduleInfo>(nullptr, target, tick, 1.0), nullptr, tick);
  scheduler->pauseTimerForTarget(nullptr, tick);
  scheduler->resumeTimerForTarget(target, Selector());
  scheduler->removeTimerForTarget(nullptr, Selector());
  EXPECT_EQ(scheduler->scheduleInfoForTarget(nullptr, tick), nullptr);
  EXPECT_EQ(scheduler->scheduleInfoForTarget(target, Selector()), nullptr);
  device.advance(100);
  EXPECT_EQ(target->ticks, 0);
}

TEST_F(KXSchedulerTest, KeepsTwoOperationsOfATargetApart) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  scheduler->scheduleTimerForTarget(target, tock, 5);
  device.advance(10);
  EXPECT_EQ(target->ticks, 1);
  EXPECT_EQ(target->tocks, 2);
  scheduler->removeTimerForTarget(target, tick);
  device.advance(10);
  EXPECT_EQ(target->ticks, 1);
  EXPECT_EQ(target->tocks, 4);
}

TEST_F(KXSchedulerTest, SharesOneEntryBetweenTargetsOfTheSameDescription) {
  const auto first = std::make_shared<Namesake>();
  const auto second = std::make_shared<Namesake>();
  scheduler->scheduleTimerForTarget(first, tick, 10);
  scheduler->scheduleTimerForTarget(second, tick, 20);
  device.advance(20);
  EXPECT_EQ(first->ticks, 0);
  EXPECT_EQ(second->ticks, 1);
}

TEST_F(KXSchedulerTest, KeepsATargetAliveUntilItsPairIsRemoved) {
  const std::weak_ptr<Target> weak = target;
  scheduler->scheduleTimerForTarget(target, tick, 10);
  target = nullptr;
  device.advance(10);
  ASSERT_FALSE(weak.expired());
  scheduler->pauseTimerForTarget(weak.lock(), tick);
  EXPECT_FALSE(weak.expired());
  scheduler->removeTimerForTarget(weak.lock(), tick);
  EXPECT_TRUE(weak.expired());
}

TEST_F(KXSchedulerTest, CallsNobodyAfterARemoval) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  const auto removed = timer();
  scheduler->removeTimerForTarget(target, tick);
  EXPECT_EQ(scheduler->scheduleInfoForTarget(target, tick), nullptr);
  EXPECT_FALSE(removed->isValid());
  device.advance(100);
  EXPECT_EQ(target->ticks, 0);
}

TEST_F(KXSchedulerTest, StoresARecordThatItIsGiven) {
  const auto record = std::make_shared<KXScheduleInfo>(nullptr, target, tick, 10.0);
  scheduler->setScheduleInfo(record, target, tick);
  EXPECT_EQ(scheduler->scheduleInfoForTarget(target, tick), record);
  scheduler->pauseTimerForTarget(target, tick);  // a record without a timer
  scheduler->resumeTimerForTarget(target, tick);
  device.advance(10);
  EXPECT_EQ(target->ticks, 1);
}

TEST_F(KXSchedulerTest, StopsATimerWhoseRecordIsLetGo) {
  scheduler->scheduleTimerForTarget(target, tick, 10);
  const auto first = timer();
  scheduler->setScheduleInfo(std::make_shared<KXScheduleInfo>(nullptr, target, tick, 10.0), target, tick);
  EXPECT_FALSE(first->isValid());
}

TEST_F(KXSchedulerTest, StopsEveryTimerWhenARegistryIsDestroyed) {
  auto own = std::make_shared<KXScheduler>();
  own->scheduleTimerForTarget(target, tick, 10);
  own = nullptr;
  device.advance(100);
  EXPECT_EQ(target->ticks, 0);
}

}  // namespace
}  // namespace kx
