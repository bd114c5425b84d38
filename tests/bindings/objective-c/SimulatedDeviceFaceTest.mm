// The simulated device as an app's own unit tests use it, from Objective-C.

#import <KXPublisher/KXPublisher.h>
#import <KXPublisher/testkit/KXPublisherSimulatedDevice.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KXPublisher/platform/Platform.h"

namespace {

using ::testing::HasSubstr;

class SimulatedDeviceFace : public ::testing::Test {
 protected:
  KXPublisher *start() {
    return [KXPublisher sharedInstanceWithApiToken:@"T" hostname:@"collect.example.com"];
  }

  /// Until the first report has arrived.
  void report() {
    start();
    [device advance:6];
  }

  /// What the last message says, as text; "none" where it lacks the key.
  std::string last(NSString *key) const {
    const id value = [device.messages.lastObject objectForKey:key];
    return value != nil ? [value description].UTF8String : "none";
  }

  KXPublisherSimulatedDevice *const device = [KXPublisherSimulatedDevice install];
};

TEST_F(SimulatedDeviceFace, IsTheSameForEachCall) {
  EXPECT_TRUE(device != nil);
  EXPECT_TRUE([KXPublisherSimulatedDevice install] == device);
}

TEST(SimulatedDeviceFaceTooLate, RaisesWhereTheLibraryHasADeviceAlready) {
  kx::Platform::current();
  EXPECT_ANY_THROW([KXPublisherSimulatedDevice install]);
}

TEST_F(SimulatedDeviceFace, ReportsAfterFiveSecondsAndEveryTenMinutes) {
  start();
  [device advance:4];
  EXPECT_EQ(device.messages.count, 0u);
  [device advance:2];
  EXPECT_EQ(device.messages.count, 1u);
  EXPECT_EQ(device.loginCount, 1);
  [device advance:600];
  EXPECT_EQ(device.messages.count, 2u);
}

TEST_F(SimulatedDeviceFace, ForgetsWhatHasArrived) {
  report();
  [device forgetMessages];
  EXPECT_EQ(device.messages.count, 0u);
  EXPECT_EQ(device.loginCount, 0);
  [device advance:600];
  EXPECT_EQ(device.messages.count, 1u);
}

TEST_F(SimulatedDeviceFace, ReportsOnLeavingTheForegroundAndAfterTheReturn) {
  report();
  [device enterBackground];
  [device advance:1];
  EXPECT_EQ(device.messages.count, 2u);
  [device advance:3600];
  EXPECT_EQ(device.messages.count, 2u);
  [device returnToForeground];
  [device advance:6];
  EXPECT_EQ(device.messages.count, 3u);
}

TEST_F(SimulatedDeviceFace, GivesMessagesAsDictionariesByTheConstantsKeys) {
  device.advertisingIdentifier = @"00112233-4455-6677-8899-AABBCCDDEEFF";
  device.advertisingTrackingEnabled = NO;
  device.model = @"iPad";
  device.systemVersion = @"17.0";
  device.preferredLanguages = @[ @"fr-FR", @"de-DE" ];
  device.bundleIdentifier = @"com.example.Other";
  report();
  EXPECT_EQ(last(dataKeyIfa), "00112233-4455-6677-8899-AABBCCDDEEFF");
  EXPECT_EQ(last(dataKeyDnt), "1");
  EXPECT_EQ(last(dataKeyDeviceModel), "iPad");
  EXPECT_EQ(last(dataKeyOsVersion), "iOS 17.0");
  EXPECT_EQ(last(dataKeyAsnBundleId), "com.example.Other");
  NSArray *const languages = [device.messages.lastObject objectForKey:dataKeyLanguages];
  EXPECT_TRUE([languages isEqual:(@[ @"fr-FR", @"de-DE" ])]);

  EXPECT_STREQ(device.advertisingIdentifier.UTF8String, "00112233-4455-6677-8899-AABBCCDDEEFF");
  EXPECT_FALSE(device.advertisingTrackingEnabled);
  EXPECT_STREQ(device.model.UTF8String, "iPad");
  EXPECT_STREQ(device.systemVersion.UTF8String, "17.0");
  EXPECT_TRUE([device.preferredLanguages isEqual:languages]);
  EXPECT_STREQ(device.bundleIdentifier.UTF8String, "com.example.Other");
}

TEST_F(SimulatedDeviceFace, SendsNothingWithoutAnAdvertisingIdentifier) {
  device.advertisingIdentifier = nil;
  report();
  EXPECT_TRUE(device.advertisingIdentifier == nil);
  EXPECT_EQ(device.messages.count, 0u);
  EXPECT_EQ(device.loginCount, 1);
}

TEST_F(SimulatedDeviceFace, TellsOfTheConnection) {
  report();
  EXPECT_EQ(last(dataKeyConnectionType), "WIFI");
  EXPECT_EQ(device.connection, KXPublisherSimulatedConnectionWifi);
  device.connection = KXPublisherSimulatedConnectionCellular;
  [device advance:600];
  EXPECT_EQ(last(dataKeyConnectionType), "CELLULAR");
  EXPECT_EQ(device.connection, KXPublisherSimulatedConnectionCellular);
}

TEST_F(SimulatedDeviceFace, NothingArrivesWithoutAConnection) {
  report();
  const NSUInteger arrived = device.messages.count;
  device.connection = KXPublisherSimulatedConnectionNone;
  EXPECT_EQ(device.connection, KXPublisherSimulatedConnectionNone);
  [device advance:600];
  EXPECT_EQ(device.messages.count, arrived);
  device.connection = KXPublisherSimulatedConnectionCellular;
  [device advance:600];
  EXPECT_EQ(device.messages.count, arrived + 1);
}

TEST_F(SimulatedDeviceFace, TellsOfTheSIM) {
  device.radioAccessTechnology = @"CTRadioAccessTechnologyEdge";
  report();
  EXPECT_EQ(last(dataKeyCarrierCode), "310-410");
  EXPECT_EQ(last(dataKeyRadioAccessTechnology), "Edge");
  EXPECT_STREQ(device.radioAccessTechnology.UTF8String, "CTRadioAccessTechnologyEdge");
  [device insertSIMWithCountryCode:@"262" networkCode:@"01"];
  [device advance:600];
  EXPECT_EQ(last(dataKeyCarrierCode), "262-01");
  [device removeSIM];
  [device advance:600];
  EXPECT_EQ(last(dataKeyCarrierCode), "none");
}

TEST_F(SimulatedDeviceFace, TellsOfThePositionAndItsPlace) {
  [device setPlaceInCountry:@"DE" state:@"BE" city:@"Berlin" postalCode:@"10115" secondsFromGMT:3600];
  [device moveToLatitude:52.5 longitude:13.25 horizontalAccuracy:8];
  report();
  EXPECT_EQ(last(dataKeyLocationLatitude), "52.5");
  EXPECT_EQ(last(dataKeyLocationLongitude), "13.25");
  EXPECT_EQ(last(dataKeyLocationHorizontalAccuracy), "8");
  EXPECT_EQ(last(dataKeyLocationCountry), "DE");
  EXPECT_EQ(last(dataKeyLocationState), "BE");
  EXPECT_EQ(last(dataKeyLocationCity), "Berlin");
  EXPECT_EQ(last(dataKeyLocationZip), "10115");
  EXPECT_EQ(last(dataKeyLocationTimezone), "3600");
  [device setPlaceInCountry:nil state:nil city:nil postalCode:nil secondsFromGMT:0];
  [device moveToLatitude:53.5 longitude:10 horizontalAccuracy:8];
  [device advance:600];
  EXPECT_EQ(last(dataKeyLocationLatitude), "53.5");
  EXPECT_EQ(last(dataKeyLocationCity), "none");
}

TEST_F(SimulatedDeviceFace, KeepsThePositionFromAnAppThatMayNotKnowIt) {
  EXPECT_TRUE(device.locationAuthorized);
  [device moveToLatitude:52.5 longitude:13.25 horizontalAccuracy:8];
  device.locationAuthorized = NO;
  report();
  EXPECT_FALSE(device.locationAuthorized);
  EXPECT_EQ(last(dataKeyLocationLatitude), "none");
  device.locationAuthorized = YES;
  [device advance:600];
  EXPECT_EQ(last(dataKeyLocationLatitude), "52.5");
}

TEST_F(SimulatedDeviceFace, AnswersOnceAsTheTestSays) {
  [device answerNextLoginWithStatusCode:401];
  report();
  EXPECT_EQ(device.loginCount, 1);
  EXPECT_EQ(device.messages.count, 0u);
  EXPECT_GE(device.logLines.count, 1u);
  [device advance:300];
  EXPECT_EQ(device.loginCount, 2);

  [device forgetMessages];
  [device answerNextMessageWithStatusCode:500];
  [device advance:300];
  EXPECT_EQ(device.messages.count, 1u);
  EXPECT_THAT(device.logLines.lastObject.UTF8String, HasSubstr("500"));
  [device failNextMessage];
  [device advance:600];
  EXPECT_EQ(device.messages.count, 2u);
  EXPECT_THAT(device.logLines.lastObject.UTF8String, HasSubstr("HTTP status: 0"));
  const NSUInteger printed = device.logLines.count;
  [device advance:600];
  EXPECT_EQ(device.messages.count, 3u);
  EXPECT_EQ(device.logLines.count, printed);
}

TEST_F(SimulatedDeviceFace, AcceptsNoTokenThatWasRevoked) {
  report();
  [device revokeAccessTokens];
  [device advance:600];
  EXPECT_EQ(device.loginCount, 2);
}

}  // namespace
