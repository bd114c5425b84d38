// The library's own data providers, seen from Objective-C.

#import <KXPublisher/KXPublisherClasses.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "tests/platform/apple/harness/HostProvider.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace {

using kx::comesToKnow;

namespace standin = kx::standin;

TEST(ObjectiveCDevice, ReadsWhatTheSystemSays) {
  KXDevice *const device = [KXDevice sharedInstance];
  EXPECT_TRUE(device.currentDevice == [UIDevice currentDevice]);
  EXPECT_STREQ(device.deviceType.UTF8String, "Phone");
  EXPECT_STREQ(device.ifa.UTF8String, "6D92078A-8246-4BA4-AE5B-76104861E7DC");
  EXPECT_TRUE([device.dnt isEqual:@0]);
  standin::setPreferredLanguages(@[ @"de-DE", @"tlh" ]);
  EXPECT_TRUE([device.languages isEqual:(@[ @"de-DE", @"tlh" ])]);
  EXPECT_EQ(device.deviceName.UTF8String, kx::KXDevice::sharedInstance()->deviceName());
  EXPECT_TRUE(device.hasPermissions);
  device.currentDevice = nil;
  EXPECT_TRUE(device.currentDevice == nil);
  EXPECT_TRUE(device.deviceType == nil);
}

TEST(ObjectiveCDevice, AsksTheWebEngineForItsNameOnTheMainThread) {
  KXDevice *const device = [KXDevice sharedInstance];
  std::atomic<bool> isAsked{false};
  NSString *userAgent = nil;
  standin::runOnThreadOfItsOwn([&] {
    @autoreleasepool {
      userAgent = device.userAgent;
    }
    isAsked = true;
  });
  ASSERT_TRUE(standin::runMainLoopUntil([&isAsked] { return isAsked.load(); }));
  EXPECT_TRUE([userAgent isEqual:standin::webEngine().userAgent]);
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
  // Until the location services are known to be on, the provider looks for the location by itself.
  standin::settleQueues();
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
