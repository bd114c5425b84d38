#include <KXPublisher/KXConstants.h>
#include <gtest/gtest.h>

#include <cstring>

#include "KXPublisher/providers/KXConnection.h"

extern "C" {
const char *ifaKeyAsCSeesIt(void);
double firstDelayAsCSeesIt(void);
}

namespace {

TEST(KXConstants, AreThoseOfTheLibrary) {
  EXPECT_EQ(KXPublisherVersionNumber, 1.0);
  EXPECT_STREQ(reinterpret_cast<const char *>(KXPublisherVersionString),
               "@(#)PROGRAM:KXPublisher  PROJECT:KXPublisher-1\n");
  EXPECT_STREQ(kxPublisherSdkName, "KXPublisher iOS");
  EXPECT_STREQ(kxPublisherSdkVersion, "v1.0");
}

TEST(KXConstants, AreTheTimes) {
  EXPECT_EQ(loggingFirstTimeDelay, 5.0);
  EXPECT_EQ(loggingTimeInterval, 600.0);
  EXPECT_EQ(accessTokenRequestTimeIntervalMinValue, 300.0);
  EXPECT_EQ(accessTokenRequestTimeIntervalMaxValue, 3600.0);
  EXPECT_EQ(accessTokenRequestTimeIntervalMultiplier, 2u);
}

TEST(KXConstants, AreTheServicesPaths) {
  EXPECT_STREQ(kxPublisherApiPathGetToken, "/api_v0_0_0/do_login");
  EXPECT_STREQ(kxPublisherFeedPathLogData, "/api_v0_0_0/post_msg");
}

TEST(KXConstants, AreTheKeysOfTheLibraryItself) {
  EXPECT_STREQ(dataKeyPublisherSdkName, "sdkName");
  EXPECT_STREQ(dataKeyPublisherSdkVersion, "sdkVer");
  EXPECT_STREQ(dataKeyIpAddresses, "ips");
  EXPECT_STREQ(dataKeyEventId, "id");
  EXPECT_STREQ(dataKeyEventTime, "eventTime");
}

TEST(KXConstants, AreTheDevicesKeysAndValues) {
  EXPECT_STREQ(dataKeyDeviceType, "deviceCategory");
  EXPECT_STREQ(dataKeyDeviceMake, "make");
  EXPECT_STREQ(dataKeyDeviceModel, "model");
  EXPECT_STREQ(dataKeyOs, "platform");
  EXPECT_STREQ(dataKeyOsVersion, "osVersion");
  EXPECT_STREQ(dataKeyDeviceName, "name");
  EXPECT_STREQ(dataKeyUserAgent, "userAgent");
  EXPECT_STREQ(dataKeyIfa, "ifa");
  EXPECT_STREQ(dataKeyDnt, "dnt");
  EXPECT_STREQ(dataKeyLanguages, "languages");
  EXPECT_STREQ(dataValueDeviceMake, "Apple");
  EXPECT_STREQ(dataValueDeviceTypeUnspecified, "Unspecified");
  EXPECT_STREQ(dataValueDeviceTypePhone, "Phone");
  EXPECT_STREQ(dataValueDeviceTypeTablet, "Tablet");
  EXPECT_STREQ(dataValueDeviceTypeTv, "TV");
  EXPECT_STREQ(dataValueDeviceTypeCarplay, "CarPlay");
}

TEST(KXConstants, AreTheKeysOfCarrierLocationConnectionAndHost) {
  EXPECT_STREQ(dataKeyCarrierName, "carrierName");
  EXPECT_STREQ(dataKeyCarrierCode, "carrierCode");
  EXPECT_STREQ(dataKeyRadioAccessTechnology, "radioAccessTechnology");
  EXPECT_STREQ(dataKeyLocationLatitude, "lat");
  EXPECT_STREQ(dataKeyLocationLongitude, "lon");
  EXPECT_STREQ(dataKeyLocationHorizontalAccuracy, "horizontalAccuracy");
  EXPECT_STREQ(dataKeyLocationAltitude, "altitude");
  EXPECT_STREQ(dataKeyLocationVerticalAccuracy, "verticalAccuracy");
  EXPECT_STREQ(dataKeyLocationCountry, "country");
  EXPECT_STREQ(dataKeyLocationState, "state");
  EXPECT_STREQ(dataKeyLocationCity, "city");
  EXPECT_STREQ(dataKeyLocationZip, "zip");
  EXPECT_STREQ(dataKeyLocationTimezone, "tzOffset");
  EXPECT_STREQ(dataKeyConnectionType, "connectionType");
  EXPECT_STREQ(dataValueConnectionTypeWifi, "WIFI");
  EXPECT_STREQ(dataValueConnectionTypeCellular, "CELLULAR");
  EXPECT_STREQ(kReachabilityDidChangeNotification, "kNetworkReachabilityDidChangeNotification");
  EXPECT_STREQ(dataKeyAsnBundleId, "bundleId");
  EXPECT_STREQ(dataKeyAsnName, "asn");
}

TEST(KXConstants, AreTheSameInC) {
  EXPECT_EQ(ifaKeyAsCSeesIt(), dataKeyIfa);
  EXPECT_EQ(firstDelayAsCSeesIt(), loggingFirstTimeDelay);
}

}  // namespace
