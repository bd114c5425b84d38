// The timers' registry, seen from Objective-C.

#import <KXPublisher/KXPublisherClasses.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "KXPublisher/providers/KXDevice.h"
#include "bindings/objective-c/ObjectiveCTimers.h"
#include "tests/platform/apple/harness/StandIn.h"

/// Called by timers.
@interface KXTestTarget : NSObject {
 @public
  std::atomic<int> ticks;
  std::atomic<int> tocks;
  NSTimer *argument;
}
- (void)tick:(NSTimer *)timer;
- (void)tock:(NSTimer *)timer;
@end

@implementation KXTestTarget
- (void)tick:(NSTimer *)timer {
  EXPECT_TRUE([NSThread isMainThread]);
  argument = timer;
  ++ticks;
}
- (void)tock:(NSTimer *)timer {
  ++tocks;
}
@end

namespace {

namespace standin = kx::standin;

TEST(ObjectiveCScheduler, CallsTheHostsTargetWithTheTimer) {
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  EXPECT_TRUE(scheduler == [KXScheduler sharedInstance]);
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:0.01];
  EXPECT_TRUE(standin::runMainLoopUntil([target] { return target->ticks >= 2; }));
  KXScheduleInfo *const info = [scheduler scheduleInfoForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE(target->argument == info.timer);
  EXPECT_TRUE(info.target == target);
  EXPECT_TRUE(sel_isEqual(info.selector, @selector(tick:)));
  EXPECT_EQ(info.timeInterval, 0.01);
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tock:)] == nil);
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
}

TEST(ObjectiveCScheduler, ARecordHasOneFaceAsLongAsItIsHeld) {
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  [scheduler setTimeInterval:100 forTarget:target selector:@selector(tick:)];
  KXScheduleInfo *const info = [scheduler scheduleInfoForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:100];
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:200];
  EXPECT_FALSE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
}

TEST(ObjectiveCScheduler, HasItsRecordsInAMap) {
  KXScheduler *const scheduler = [[KXScheduler alloc] init];
  EXPECT_EQ(scheduler.scheduleInfoMap.count, 0u);
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:100];
  NSDictionary<NSString *, KXScheduleInfo *> *const map = scheduler.scheduleInfoMap;
  KXScheduleInfo *const info = [scheduler scheduleInfoForTarget:target selector:@selector(tick:)];
  ASSERT_EQ(map.count, 1u);
  EXPECT_TRUE([map objectForKey:[KXScheduler keyForTarget:target selector:@selector(tick:)]] == info);
  scheduler.scheduleInfoMap = @{};
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == nil);
  scheduler.scheduleInfoMap = map;
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
}

TEST(ObjectiveCScheduler, PausesResumesAndRemoves) {
  KXScheduler *const scheduler = [[KXScheduler alloc] init];
  EXPECT_FALSE(scheduler == [KXScheduler sharedInstance]);
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:0.01];
  [scheduler pauseTimerForTarget:target selector:@selector(tick:)];
  standin::settleMainLoop();
  KXScheduleInfo *const info = [scheduler scheduleInfoForTarget:target selector:@selector(tick:)];
  EXPECT_FALSE([info.timer isValid]);
  target->ticks = 0;
  [scheduler resumeTimerForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE(standin::runMainLoopUntil([target] { return target->ticks > 0; }));
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == nil);
}

TEST(ObjectiveCScheduler, ARemovedTargetIsLetGo) {
  __weak KXTestTarget *weak = nil;
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  @autoreleasepool {
    KXTestTarget *const target = [[KXTestTarget alloc] init];
    weak = target;
    [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:100];
  }
  EXPECT_TRUE(weak != nil);
  @autoreleasepool {
    [scheduler removeTimerForTarget:weak selector:@selector(tick:)];
  }
  standin::settleMainLoop();
  EXPECT_TRUE(weak == nil);
}

/// A record of the host's, kept for the pair of its target and its operation.
KXScheduleInfo *keptRecord(NSTimer *timer, KXTestTarget *target, NSTimeInterval timeInterval) {
  KXScheduleInfo *const info = [[KXScheduleInfo alloc] initWithTimer:timer
                                                           forTarget:target
                                                            selector:@selector(tick:)
                                                    withTimeInterval:timeInterval];
  [[KXScheduler sharedInstance] setScheduleInfo:info forTarget:target selector:@selector(tick:)];
  return info;
}

NSTimer *timerOf(KXTestTarget *target) {
  return [NSTimer timerWithTimeInterval:100 target:target selector:@selector(tick:) userInfo:nil repeats:YES];
}

TEST(ObjectiveCScheduler, AHostsRecordIsKeptAndResumed) {
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  NSTimer *const timer = timerOf(target);
  KXScheduleInfo *const info = keptRecord(timer, target, 0.01);
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  EXPECT_TRUE(info.timer == timer);
  [scheduler pauseTimerForTarget:target selector:@selector(tick:)];
  EXPECT_FALSE([timer isValid]);
  [scheduler resumeTimerForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE(standin::runMainLoopUntil([target] { return target->ticks > 0; }));
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
}

TEST(ObjectiveCScheduler, ResumesWhatARecordNamesByNow) {
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  KXTestTarget *const another = [[KXTestTarget alloc] init];
  KXScheduleInfo *const info = keptRecord(nil, target, 0.01);
  info.target = another;
  EXPECT_TRUE(info.target == another);
  [scheduler resumeTimerForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE(standin::runMainLoopUntil([another] { return another->ticks > 0; }));
  [scheduler removeTimerForTarget:another selector:@selector(tick:)];

  info.selector = @selector(tock:);
  EXPECT_TRUE(sel_isEqual(info.selector, @selector(tock:)));
  EXPECT_TRUE(info.target == another);
  info.timeInterval = 0.02;
  EXPECT_EQ(info.timeInterval, 0.02);
  [scheduler resumeTimerForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE(standin::runMainLoopUntil([another] { return another->tocks > 0; }));
  EXPECT_EQ([scheduler scheduleInfoForTarget:another selector:@selector(tock:)].timeInterval, 0.02);
  EXPECT_EQ(target->ticks + target->tocks, 0);
  [scheduler removeTimerForTarget:another selector:@selector(tock:)];
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
}

TEST(ObjectiveCScheduler, StopsTheTimerThatARecordHasByNow) {
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  NSTimer *const first = timerOf(target);
  NSTimer *const second = timerOf(target);
  KXScheduleInfo *const info = keptRecord(first, target, 100);
  info.timer = second;
  EXPECT_TRUE(info.timer == second);
  [[KXScheduler sharedInstance] removeTimerForTarget:target selector:@selector(tick:)];
  EXPECT_FALSE([second isValid]);
  EXPECT_TRUE([first isValid]);
  [first invalidate];
}

TEST(ObjectiveCScheduler, StopsAHostsTimerOnTheMainThread) {
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  NSTimer *const timer = timerOf(target);
  keptRecord(timer, target, 100);
  std::thread([target] {
    @autoreleasepool {
      [[KXScheduler sharedInstance] removeTimerForTarget:target selector:@selector(tick:)];
    }
  }).join();
  EXPECT_TRUE([timer isValid]);
  standin::settleMainLoop();
  EXPECT_FALSE([timer isValid]);
}

TEST(ObjectiveCScheduler, ReplacesAHostsTimerOnlyWhereItHasStopped) {
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  NSTimer *const timer = timerOf(target);
  KXScheduleInfo *const info = keptRecord(timer, target, 100);
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:100];
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  EXPECT_TRUE([timer isValid]);
  [timer invalidate];
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:100];
  EXPECT_TRUE([[scheduler scheduleInfoForTarget:target selector:@selector(tick:)].timer isValid]);
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
}

TEST(ObjectiveCScheduler, KeepsAPairWhenARecordIsMissing) {
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  KXScheduleInfo *const info = keptRecord(nil, target, 100);
  KXScheduleInfo *const missing = [scheduler scheduleInfoForTarget:target selector:@selector(tock:)];
  [scheduler setScheduleInfo:missing forTarget:target selector:@selector(tick:)];
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
}

// For a moment, while another thread exchanges a record's operation, its target has none.
TEST(ObjectiveCScheduler, DoesNotCallATargetWithoutAnOperation) {
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  const auto tick = kx::HostTarget::selectorOf(@selector(tick:));
  tick.perform(*kx::HostTarget::make(target, nullptr), nullptr);
  EXPECT_EQ(target->ticks, 0);
  tick.perform(*kx::HostTarget::make(target, @selector(tick:)), nullptr);
  EXPECT_EQ(target->ticks, 1);
}

TEST(ObjectiveCScheduler, KnowsAPairByItsDescriptions) {
  NSString *const key = [KXScheduler keyForTarget:@"me" selector:@selector(tick:)];
  EXPECT_STREQ(key.UTF8String, "t:me,s:tick:");
  EXPECT_TRUE([KXScheduler keyForTarget:nil selector:@selector(tick:)] == nil);
  EXPECT_TRUE([KXScheduler keyForTarget:@"me" selector:nullptr] == nil);
  KXDevice *const device = [KXDevice sharedInstance];
  EXPECT_EQ(
      std::string([KXScheduler keyForTarget:device selector:@selector(updateDataWithTimer:)].UTF8String),
      "t:" + kx::KXDevice::sharedInstance()->description() + ",s:updateDataWithTimer:");
}

}  // namespace
