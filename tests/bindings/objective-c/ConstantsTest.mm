// What an Objective-C host links against.

#import <KXPublisher/KXPublisher.h>

#include <gtest/gtest.h>

namespace {

const char *textOf(NSString *constant) {
  return constant.UTF8String;
}

TEST(ObjectiveCConstants, AreTheVersion) {
  EXPECT_EQ(KXPublisherVersionNumber, 1.0);
  EXPECT_STREQ(reinterpret_cast<const char *>(KXPublisherVersionString),
               "@(#)PROGRAM:KXPublisher  PROJECT:KXPublisher-1\n");
  EXPECT_STREQ(textOf(kxPublisherSdkName), "KXPublisher iOS");
  EXPECT_STREQ(textOf(kxPublisherSdkVersion), "v1.0");
}

TEST(ObjectiveCConstants, AreTheTimes) {
  EXPECT_EQ(loggingFirstTimeDelay, 5.0);
  EXPECT_EQ(loggingTimeInterval, 600.0);
  EXPECT_EQ(accessTokenRequestTimeIntervalMinValue, 300.0);
  EXPECT_EQ(accessTokenRequestTimeIntervalMaxValue, 3600.0);
  EXPECT_EQ(accessTokenRequestTimeIntervalMultiplier, 2u);
}

TEST(ObjectiveCConstants, AreTheServicesPaths) {
  EXPECT_STREQ(textOf(kxPublisherApiPathGetToken), "/api_v0_0_0/do_login");
  EXPECT_STREQ(textOf(kxPublisherFeedPathLogData), "/api_v0_0_0/post_msg");
}

TEST(ObjectiveCConstants, AreTheKeysOfTheLibraryItself) {
  EXPECT_STREQ(textOf(dataKeyPublisherSdkName), "sdkName");
  EXPECT_STREQ(textOf(dataKeyPublisherSdkVersion), "sdkVer");
  EXPECT_STREQ(textOf(dataKeyIpAddresses), "ips");
  EXPECT_STREQ(textOf(dataKeyEventId), "id");
  EXPECT_STREQ(textOf(dataKeyEventTime), "eventTime");
}

TEST(ObjectiveCConstants, AreTheKeysOfTheDevice) {
  EXPECT_STREQ(textOf(dataKeyDeviceType), "deviceCategory");
  EXPECT_STREQ(textOf(dataKeyDeviceMake), "make");
  EXPECT_STREQ(textOf(dataKeyDeviceModel), "model");
  EXPECT_STREQ(textOf(dataKeyOs), "platform");
  EXPECT_STREQ(textOf(dataKeyOsVersion), "osVersion");
  EXPECT_STREQ(textOf(dataKeyDeviceName), "name");
  EXPECT_STREQ(textOf(dataKeyUserAgent), "userAgent");
  EXPECT_STREQ(textOf(dataKeyIfa), "ifa");
  EXPECT_STREQ(textOf(dataKeyDnt), "dnt");
  EXPECT_STREQ(textOf(dataKeyLanguages), "languages");
}

TEST(ObjectiveCConstants, AreTheValuesOfTheDevice) {
  EXPECT_STREQ(textOf(dataValueDeviceMake), "Apple");
  EXPECT_STREQ(textOf(dataValueDeviceTypeUnspecified), "Unspecified");
  EXPECT_STREQ(textOf(dataValueDeviceTypePhone), "Phone");
  EXPECT_STREQ(textOf(dataValueDeviceTypeTablet), "Tablet");
  EXPECT_STREQ(textOf(dataValueDeviceTypeTv), "TV");
  EXPECT_STREQ(textOf(dataValueDeviceTypeCarplay), "CarPlay");
}

TEST(ObjectiveCConstants, AreTheKeysOfTheCarrier) {
  EXPECT_STREQ(textOf(dataKeyCarrierName), "carrierName");
  EXPECT_STREQ(textOf(dataKeyCarrierCode), "carrierCode");
  EXPECT_STREQ(textOf(dataKeyRadioAccessTechnology), "radioAccessTechnology");
}

TEST(ObjectiveCConstants, AreTheKeysOfTheLocation) {
  EXPECT_STREQ(textOf(dataKeyLocationLatitude), "lat");
  EXPECT_STREQ(textOf(dataKeyLocationLongitude), "lon");
  EXPECT_STREQ(textOf(dataKeyLocationHorizontalAccuracy), "horizontalAccuracy");
  EXPECT_STREQ(textOf(dataKeyLocationAltitude), "altitude");
  EXPECT_STREQ(textOf(dataKeyLocationVerticalAccuracy), "verticalAccuracy");
  EXPECT_STREQ(textOf(dataKeyLocationCountry), "country");
  EXPECT_STREQ(textOf(dataKeyLocationState), "state");
  EXPECT_STREQ(textOf(dataKeyLocationCity), "city");
  EXPECT_STREQ(textOf(dataKeyLocationZip), "zip");
  EXPECT_STREQ(textOf(dataKeyLocationTimezone), "tzOffset");
}

TEST(ObjectiveCConstants, AreTheKeysAndValuesOfTheConnectionAndTheHost) {
  EXPECT_STREQ(textOf(dataKeyConnectionType), "connectionType");
  EXPECT_STREQ(textOf(dataValueConnectionTypeWifi), "WIFI");
  EXPECT_STREQ(textOf(dataValueConnectionTypeCellular), "CELLULAR");
  EXPECT_STREQ(textOf(kReachabilityDidChangeNotification), "kNetworkReachabilityDidChangeNotification");
  EXPECT_STREQ(textOf(dataKeyAsnBundleId), "bundleId");
  EXPECT_STREQ(textOf(dataKeyAsnName), "asn");
}

}  // namespace
