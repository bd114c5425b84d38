#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

#include "KXPublisher/platform/RunLoop.h"
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

TEST_F(KXSchedulerTest, CallsTheTargetWhileTheUserScrolls) {
  device.runLoopService.setTracking(true);
  scheduler->scheduleTimerForTarget(target, tick, 10);
  device.advance(10);
  EXPECT_EQ(target->ticks, 1);
}

TEST_F(KXSchedulerTest, ComparesPeriodsBitForBit) {
  scheduler->scheduleTimerForTarget(target, tick, 0.0);
  const auto first = timer();
  scheduler->scheduleTimerForTarget(target, tick, -0.0);
  EXPECT_NE(timer(), first);
  scheduler->scheduleTimerForTarget(target, tick, std::nan(""));
  const auto last = timer();
  scheduler->scheduleTimerForTarget(target, tick, std::nan(""));
  EXPECT_EQ(timer(), last);
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

TEST_F(KXSchedulerTest, HasAReaderAndASetterForItsMap) {
  EXPECT_TRUE(scheduler->scheduleInfoMap().empty());
  scheduler->scheduleTimerForTarget(target, tick, 10);
  const auto map = scheduler->scheduleInfoMap();
  ASSERT_EQ(map.size(), 1u);
  EXPECT_EQ(map.begin()->first, KXScheduler::keyForTarget(target, tick));
  EXPECT_EQ(map.begin()->second->timer(), timer());
  scheduler->setScheduleInfoMap({});
  EXPECT_EQ(scheduler->scheduleInfoForTarget(target, tick), nullptr);
  scheduler->setScheduleInfoMap(map);
  EXPECT_EQ(scheduler->scheduleInfoForTarget(target, tick), map.begin()->second);
}

TEST_F(KXSchedulerTest, IsNotHeldWhileItReleasesATargetThatCallsBackIn) {
  class LastTarget : public Target {
   public:
    ~LastTarget() override {
      KXScheduler::sharedInstance()->removeTimerForTarget(std::make_shared<Target>(), kx::tick);
    }
  };
  const auto namesake = std::make_shared<Namesake>();
  const auto store = [&] {
    auto last = std::make_shared<LastTarget>();
    scheduler->setScheduleInfo(std::make_shared<KXScheduleInfo>(nullptr, last, tick, 10), namesake, tick);
    return std::weak_ptr<LastTarget>(last);
  };
  const auto removed = store();
  scheduler->removeTimerForTarget(namesake, tick);
  EXPECT_TRUE(removed.expired());
  const auto replaced = store();
  const auto emptied = store();
  EXPECT_TRUE(replaced.expired());
  scheduler->setScheduleInfoMap({});
  EXPECT_TRUE(emptied.expired());
}

TEST_F(KXSchedulerTest, LeavesNoTimerBehindThatHasNoRecord) {
  class NoLoop : public RunLoop, public RunLoopService {
   public:
    explicit NoLoop(RunLoopService &loops) : loops_(loops) {}
    void addTimer(const std::shared_ptr<RunLoopTimer> &timer, RunLoopMode) override {
      last = timer;
      throw std::runtime_error("no loop");
    }
    std::shared_ptr<RunLoop> mainRunLoop() override { return {std::shared_ptr<void>(), this}; }
    std::shared_ptr<RunLoop> currentRunLoop() override { return mainRunLoop(); }
    std::shared_ptr<RunLoopTimer> timerWithTimeInterval(double timeInterval,
                                                        const std::shared_ptr<Object> &of, Selector selector,
                                                        bool repeats) override {
      return loops_.timerWithTimeInterval(timeInterval, of, selector, repeats);
    }
    std::shared_ptr<RunLoopTimer> last;

   private:
    RunLoopService &loops_;
  };
  const auto loops = std::make_shared<NoLoop>(device.runLoopService);
  device.replaced.runLoops = loops;
  EXPECT_THROW(scheduler->scheduleTimerForTarget(target, tick, 10), std::runtime_error);
  ASSERT_NE(loops->last, nullptr);
  EXPECT_FALSE(loops->last->isValid());
  EXPECT_TRUE(scheduler->scheduleInfoMap().empty());
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
