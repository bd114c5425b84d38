// Data providers that the host brings.

#import <KXPublisher/KXPublisherClasses.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/platform/apple/harness/HostProvider.h"
#include "tests/platform/apple/harness/Raised.h"
#include "tests/platform/apple/harness/StandIn.h"

/// One that supplies nothing.
@interface KXTestNothing : KXData
@end
@implementation KXTestNothing
@end

/// One that forgets its period.
@interface KXTestPeriodless : KXData
@end
@implementation KXTestPeriodless
+ (BOOL)needsMonitoring {
  return YES;
}
@end

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

using kx::comesToKnow;
using kx::raisedBy;
using kx::weather;

namespace standin = kx::standin;

TEST(ObjectiveCData, AHostsProviderIsComputedOnItsOwnQueue) {
  KXTestWeather *const provider = [[KXTestWeather alloc] init];
  EXPECT_TRUE(provider->wasSetUpFirst);
  EXPECT_TRUE(provider.sharedScheduler == [KXScheduler sharedInstance]);
  EXPECT_TRUE(comesToKnow(provider, weather())) << provider.data.description.UTF8String;
  EXPECT_EQ(provider->computationsOnTheMainThread, 0);
  const int before = provider->computations;
  [provider updateData];
  EXPECT_TRUE(standin::runMainLoopUntil([=] { return provider->computations > before; }));
  EXPECT_EQ(provider->computationsOnTheMainThread, 0);
}

TEST(ObjectiveCData, AHostsProviderWithoutPermissionIsNotComputed) {
  KXTestWeather *const provider = [[KXTestWeather alloc] init];
  provider->permitted = false;
  standin::settleQueues();
  EXPECT_EQ(provider->computations, 0);
  EXPECT_TRUE(provider.data == nil);
}

TEST(ObjectiveCData, FactsAreInstalledAndReset) {
  KXTestWeather *const provider = [[KXTestWeather alloc] init];
  EXPECT_TRUE(comesToKnow(provider, weather()));
  [provider updateData:@{@"weather" : @"foul"}];
  EXPECT_TRUE(comesToKnow(provider, @{@"weather" : @"foul"}));
  [provider resetData];
  EXPECT_TRUE(comesToKnow(provider, @{}));
  [provider updateDataWithTimer:nil];
  EXPECT_TRUE(comesToKnow(provider, weather()));
}

TEST(ObjectiveCData, AMonitoredProviderIsRecomputedUntilItIsSwitchedOff) {
  KXTestClock *const provider = [[KXTestClock alloc] init];
  EXPECT_FALSE(provider.isMonitoring);
  provider.monitoring = YES;
  EXPECT_TRUE(provider.isMonitoring);
  EXPECT_TRUE([[KXScheduler sharedInstance] scheduleInfoForTarget:provider
                                                         selector:@selector(updateDataWithTimer:)]
                  .target == provider);
  EXPECT_TRUE(standin::runMainLoopUntil([=] { return provider->computations > 3; }));
  provider.monitoring = NO;
  EXPECT_TRUE(comesToKnow(provider, @{}));
  EXPECT_TRUE([[KXScheduler sharedInstance] scheduleInfoForTarget:provider
                                                         selector:@selector(updateDataWithTimer:)] == nil);
  provider.monitoring = YES;
  provider->permitted = false;
  [provider updateMonitoring];
  EXPECT_TRUE(comesToKnow(provider, @{}));
}

TEST(ObjectiveCData, WhatAProviderDoesNotSupplyRaises) {
  KXTestNothing *const provider = [[KXTestNothing alloc] init];
  const std::string inconsistency = "NSInternalInconsistencyException: You must override ";
  EXPECT_EQ(raisedBy([] { [KXTestNothing sharedInstance]; }), inconsistency + "sharedInstance in a subclass");
  EXPECT_EQ(raisedBy([] { [KXTestWeather sharedInstanceWithMonitoring:YES]; }),
            inconsistency + "sharedInstanceWithMonitoring: in a subclass");
  EXPECT_EQ(raisedBy([] { [KXDevice sharedInstanceWithMonitoring:NO]; }),
            inconsistency + "sharedInstanceWithMonitoring: in a subclass");
  EXPECT_EQ(raisedBy([] { [KXTestNothing needsMonitoring]; }),
            inconsistency + "needsMonitoring in a subclass");
  EXPECT_EQ(raisedBy([=] { [provider hasPermissions]; }), inconsistency + "hasPermissions in a subclass");
  EXPECT_EQ(raisedBy([=] { [provider computeData]; }), inconsistency + "computeData in a subclass");
  EXPECT_EQ(raisedBy([] { [KXTestPeriodless monitoringTimeInterval]; }),
            inconsistency + "monitoringTimeInterval in a subclass");
}

TEST(ObjectiveCData, WhatIsNotMonitoredDoesNotRecogniseItsSwitch) {
  KXTestWeather *const provider = [[KXTestWeather alloc] init];
  EXPECT_THAT(raisedBy([=] { provider.monitoring = YES; }), StartsWith("NSInvalidArgumentException: "));
  EXPECT_FALSE(provider.isMonitoring);
  EXPECT_THAT(raisedBy([] { [KXTestWeather monitoringTimeInterval]; }),
              StartsWith("NSInvalidArgumentException: "));
  for (Class provided in
       @[ [KXDevice class], [KXCarrier class], [KXLocation class], [KXConnection class], [KXAsn class] ]) {
    EXPECT_FALSE([provided needsMonitoring]);
    EXPECT_THAT(raisedBy([=] { [provided monitoringTimeInterval]; }),
                StartsWith("NSInvalidArgumentException: "));
  }
  EXPECT_THAT(raisedBy([] { [KXAsn sharedInstance].monitoring = YES; }),
              StartsWith("NSInvalidArgumentException: "));
}

TEST(ObjectiveCData, WhatAHostsComputationRaisesEndsWithIt) {
  ::testing::internal::CaptureStderr();
  KXTestNothing *const provider = [[KXTestNothing alloc] init];
  [provider updateData];
  standin::settleQueues();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("[KX Error] An exception ended a task: NSInternalInconsistencyException: "
                        "You must override computeData in a subclass"));
}

}  // namespace
