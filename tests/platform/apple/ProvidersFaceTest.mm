// Data providers, seen from Objective-C: the library's own, and one that the host brings.

#import <KXPublisher/KXPublisherClasses.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>

#include "KXPublisher/KXPublisher.hpp"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXLocation.h"
#include "tests/platform/apple/harness/Collector.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

/// A provider of the host's.
@interface KXTestWeather : KXData {
 @public
  std::atomic<bool> permitted;
  std::atomic<int> computations;
  std::atomic<int> computationsOnTheMainThread;
  std::atomic<bool> wasSetUpFirst;
}
@end

@implementation KXTestWeather

+ (BOOL)needsMonitoring {
  return NO;
}

- (BOOL)hasPermissions {
  return permitted;
}

- (KXFacts *)computeData {
  ++computations;
  if ([NSThread isMainThread]) ++computationsOnTheMainThread;
  return @{
    @"weather" : @"fair",
    @"degrees" : @21.5,
    @"windows" : @3,
    @"open" : @NO,
    @"gone" : [NSNull null],
    @"nested" : @{@"rain" : @[ @"none", [NSDate date] ]},
  };
}

- (void)instanceDidStartInit {
  wasSetUpFirst = self.sharedScheduler == nil && self.data == nil;
  permitted = true;
}

@end

/// One that is recomputed periodically.
@interface KXTestClock : KXTestWeather
@end

@implementation KXTestClock
+ (BOOL)needsMonitoring {
  return YES;
}
+ (NSTimeInterval)monitoringTimeInterval {
  return 0.02;
}
@end

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

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace standin = kx::standin;

std::string raisedBy(const std::function<void()> &work) {
  NSException *raised = nil;
  try {
    work();
  } catch (id exception) {
    raised = exception;
  }
  if (raised == nil) return "";
  return std::string(raised.name.UTF8String) + ": " + raised.reason.UTF8String;
}

bool comesToKnow(KXData *provider, KXFacts *facts) {
  return standin::runMainLoopUntil([=] { return [provider.data isEqual:facts]; });
}

KXFacts *weather() {
  return @{
    @"weather" : @"fair",
    @"degrees" : @21.5,
    @"windows" : @3,
    @"open" : @NO,
    @"nested" : @{@"rain" : @[ @"none" ]},
  };
}

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
  standin::settleMainLoop();
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
  std::string printed;
  EXPECT_TRUE(standin::runMainLoopUntil([&printed] {
    printed += ::testing::internal::GetCapturedStderr();
    ::testing::internal::CaptureStderr();
    return printed.find("You must override computeData in a subclass") != std::string::npos;
  }));
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(printed, HasSubstr("[KX Error] An exception ended a task: NSInternalInconsistencyException: "));
}

TEST(ObjectiveCPublisher, ReportsWhatAHostsProviderKnows) {
  standin::locationServices().areEnabled = false;
  kx::Collector collector;
  KXPublisher *const publisher = [KXPublisher sharedInstanceWithApiToken:@"T"
                                                                hostname:@(collector.hostname().c_str())];
  KXTestWeather *const provider = [[KXTestWeather alloc] init];
  publisher.dataProviders = [publisher.dataProviders arrayByAddingObject:provider];
  EXPECT_TRUE(comesToKnow(provider, weather()));
  ASSERT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("message").size() == 1; }));
  const auto message = collector.requests("message").at(0)["document"].at(0);
  EXPECT_EQ(message["weather"], "fair");
  EXPECT_EQ(message["degrees"], 21.5);
  EXPECT_EQ(message["windows"], 3);
  EXPECT_EQ(message["open"], false);
  EXPECT_FALSE(message.contains("gone"));
  EXPECT_EQ(message["nested"].dump(), R"({"rain":["none"]})");
  EXPECT_EQ(message["make"], "Apple");
}

TEST(ObjectiveCPublisher, HasItsPartsAlwaysWithTheSameFaces) {
  KXPublisher *const publisher = [KXPublisher sharedInstanceWithApiToken:@"T" hostname:@"localhost:1"];
  NSArray<KXData *> *const providers = publisher.dataProviders;
  ASSERT_EQ(providers.count, 5u);
  EXPECT_TRUE([providers objectAtIndex:0] == [KXDevice sharedInstance]);
  EXPECT_TRUE([providers objectAtIndex:1] == [KXCarrier sharedInstance]);
  EXPECT_TRUE([providers objectAtIndex:2] == [KXLocation sharedInstance]);
  EXPECT_TRUE([providers objectAtIndex:3] == [KXConnection sharedInstance]);
  EXPECT_TRUE([providers objectAtIndex:4] == [KXAsn sharedInstance]);
  EXPECT_TRUE(publisher.kxLogger == [KXLogger sharedInstanceWithApiToken:nil hostname:nil]);
  EXPECT_TRUE(publisher.kxLog == [KXLog sharedInstance]);
  EXPECT_TRUE([publisher.logTimer isValid]);
  NSTimer *const timer = publisher.logTimer;
  EXPECT_TRUE(publisher.logTimer == timer);
  standin::enterBackground();
  EXPECT_TRUE(publisher.logTimer == nil);
  KXTestWeather *const provider = [[KXTestWeather alloc] init];
  publisher.dataProviders = @[ provider, [KXAsn sharedInstance] ];
  EXPECT_TRUE([publisher.dataProviders objectAtIndex:0] == provider);
  EXPECT_TRUE([publisher.dataProviders objectAtIndex:1] == [KXAsn sharedInstance]);
}

TEST(ObjectiveCPublisher, OneOfItsOwnIsAnother) {
  KXPublisher *const shared = [KXPublisher sharedInstanceWithApiToken:@"T" hostname:@"localhost:1"];
  KXPublisher *const own = [[KXPublisher alloc] initWithApiToken:@"T" hostname:@"localhost:1"];
  own.dataProviders = @[];
  EXPECT_EQ(shared.dataProviders.count, 5u);
  EXPECT_FALSE(own.logTimer == shared.logTimer);
  EXPECT_TRUE([[own.data objectForKey:dataKeyPublisherSdkName] isEqual:kxPublisherSdkName]);
  EXPECT_TRUE([own.data objectForKey:dataKeyDeviceMake] == nil);
}

TEST(ObjectiveCPublisher, SendsOnDemand) {
  standin::locationServices().areEnabled = false;
  kx::Collector collector;
  KXPublisher *const publisher = [KXPublisher sharedInstanceWithApiToken:@"T"
                                                                hostname:@(collector.hostname().c_str())];
  KXNetworking *const networking = publisher.kxLogger.kxNetworking;
  ASSERT_TRUE(standin::runMainLoopUntil([=] {
    return networking.accessToken != nil && [[KXDevice sharedInstance].data objectForKey:dataKeyIfa] != nil;
  }));
  [publisher logDataAsync:NO];
  [publisher logData:nil];
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("message").size() == 2; }));
}

TEST(ObjectiveCDevice, ReadsWhatTheSystemSays) {
  KXDevice *const device = [KXDevice sharedInstance];
  EXPECT_TRUE(device.currentDevice == [UIDevice currentDevice]);
  EXPECT_STREQ(device.deviceType.UTF8String, "Phone");
  EXPECT_STREQ(device.ifa.UTF8String, "6D92078A-8246-4BA4-AE5B-76104861E7DC");
  EXPECT_TRUE([device.dnt isEqual:@0]);
  EXPECT_GT(device.languages.count, 0u);
  EXPECT_GT(device.deviceName.length, 0u);
  EXPECT_TRUE(device.hasPermissions);
  device.currentDevice = nil;
  EXPECT_TRUE(device.currentDevice == nil);
  EXPECT_TRUE(device.deviceType == nil);
}

TEST(ObjectiveCCarrier, HoldsTheSystemsObjects) {
  KXCarrier *const carrier = [KXCarrier sharedInstance];
  CTTelephonyNetworkInfo *const info = carrier.networkInfo;
  EXPECT_TRUE([info isKindOfClass:[CTTelephonyNetworkInfo class]]);
  EXPECT_STREQ(carrier.carrierInfo.mobileCountryCode.UTF8String, "310");
  [carrier initCarrierInfo];
  EXPECT_TRUE(carrier.networkInfo != nil && carrier.networkInfo != info);
}

TEST(ObjectiveCLocation, IsTheDelegateThatAHostMayCall) {
  KXLocation *const location = [KXLocation sharedInstance];
  CLLocationManager *const manager = location.locationManager;
  EXPECT_TRUE([manager isKindOfClass:[CLLocationManager class]]);
  EXPECT_TRUE([location.geocoder isKindOfClass:[CLGeocoder class]]);
  standin::locationServices().location = standin::locationAt(54.5, 7.25);
  const auto latitude = [=] { return [location.data objectForKey:dataKeyLocationLatitude]; };
  [location locationManager:manager didChangeAuthorizationStatus:kCLAuthorizationStatusAuthorizedAlways];
  EXPECT_TRUE(standin::runMainLoopUntil([=] { return [latitude() isEqual:@54.5]; }));
  [location locationManagerDidPauseLocationUpdates:manager];
  EXPECT_TRUE(comesToKnow(location, @{}));
  standin::locationServices().location = standin::locationAt(55.5, 7.25);
  [location locationManagerDidResumeLocationUpdates:manager];
  EXPECT_TRUE(standin::runMainLoopUntil([=] { return [latitude() isEqual:@55.5]; }));
  standin::locationServices().location = standin::locationAt(56.5, 7.25);
  [location locationManager:manager didUpdateLocations:@[]];
  EXPECT_TRUE(standin::runMainLoopUntil([=] { return [latitude() isEqual:@56.5]; }));
}

TEST(ObjectiveCConnection, KnowsTheWay) {
  KXConnection *const connection = [KXConnection sharedInstance];
  EXPECT_EQ(connection.currentReachabilityStatus, KXNetworkStatusWifi);
  EXPECT_EQ([connection networkStatusForFlags:0x40002], KXNetworkStatusCellular);
  EXPECT_EQ([connection networkStatusForFlags:0], KXNetworkStatusNone);
  EXPECT_TRUE(connection.reachability.pointerValue != nullptr);
  EXPECT_EQ(standin::scheduledMainRunLoops(), 1);
  [connection stopNotifier];
  EXPECT_EQ(standin::scheduledMainRunLoops(), 0);
  [connection startNotifier];
  EXPECT_EQ(standin::scheduledMainRunLoops(), 1);
  EXPECT_TRUE(comesToKnow(connection, @{dataKeyConnectionType : dataValueConnectionTypeWifi}));
  standin::reachability().flags = 0;
  [connection reachabilityDidChange:nil];
  EXPECT_TRUE(comesToKnow(connection, @{}));
}

TEST(ObjectiveCConnection, IsTheSenderOfItsNotification) {
  int ofAnyone = 0;
  int ofTheConnection = 0;
  int *const anyones = &ofAnyone;
  int *const theConnections = &ofTheConnection;
  static_cast<void>(kx::KXConnection::sharedInstance());  // the host has not asked for its face yet
  NSNotificationCenter *const center = [NSNotificationCenter defaultCenter];
  [center addObserverForName:kReachabilityDidChangeNotification
                      object:nil
                       queue:nil
                  usingBlock:^(NSNotification *notification) {
                    EXPECT_TRUE(notification.object == [KXConnection sharedInstance]);
                    ++*anyones;
                  }];
  standin::changeReachability(0);
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return ofAnyone == 1; }));
  [center addObserverForName:kReachabilityDidChangeNotification
                      object:[KXConnection sharedInstance]
                       queue:nil
                  usingBlock:^(NSNotification *) {
                    ++*theConnections;
                  }];
  standin::changeReachability(0x2);
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return ofAnyone == 2; }));
  EXPECT_EQ(ofTheConnection, 1);
}

}  // namespace
