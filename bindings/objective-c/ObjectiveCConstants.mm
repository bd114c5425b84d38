#import <KXPublisher/KXPublisherConstants.h>

#include <optional>
#include <string>
#include <string_view>

#include "KXPublisher/KXPublisher.hpp"  // the one for C++
#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXLocation.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "platform/apple/AppleText.h"
#include "transport/KXServicePaths.h"

// What the library calls its constants inside is written down with the class that uses them. Here they are
// given to hosts as Objective-C strings, which have to be literals: the compiler compares the two.

const double KXPublisherVersionNumber = 1.0;
const unsigned char KXPublisherVersionString[] = "@(#)PROGRAM:KXPublisher  PROJECT:KXPublisher-1\n";

NSString *kxPublisherApiPathGetToken = @"/api_v0_0_0/do_login";
NSString *kxPublisherFeedPathLogData = @"/api_v0_0_0/post_msg";

const NSTimeInterval loggingFirstTimeDelay = kx::constants::loggingFirstTimeDelay;
const NSTimeInterval loggingTimeInterval = kx::constants::loggingTimeInterval;
const NSTimeInterval accessTokenRequestTimeIntervalMinValue =
    kx::constants::accessTokenRequestTimeIntervalMinValue;
const NSTimeInterval accessTokenRequestTimeIntervalMaxValue =
    kx::constants::accessTokenRequestTimeIntervalMaxValue;
const NSUInteger accessTokenRequestTimeIntervalMultiplier =
    kx::constants::accessTokenRequestTimeIntervalMultiplier;

#define KX_TEXT(name, literal)                                                                     \
  static_assert(std::string_view(kx::constants::name) == literal, "the two names' values differ"); \
  NSString *const name = @literal;

KX_TEXT(kxPublisherSdkName, "KXPublisher iOS")
KX_TEXT(kxPublisherSdkVersion, "v1.0")
KX_TEXT(dataKeyPublisherSdkName, "sdkName")
KX_TEXT(dataKeyPublisherSdkVersion, "sdkVer")
KX_TEXT(dataKeyIpAddresses, "ips")
KX_TEXT(dataKeyEventId, "id")
KX_TEXT(dataKeyEventTime, "eventTime")
KX_TEXT(dataKeyDeviceType, "deviceCategory")
KX_TEXT(dataKeyDeviceMake, "make")
KX_TEXT(dataKeyDeviceModel, "model")
KX_TEXT(dataKeyOs, "platform")
KX_TEXT(dataKeyOsVersion, "osVersion")
KX_TEXT(dataKeyDeviceName, "name")
KX_TEXT(dataKeyUserAgent, "userAgent")
KX_TEXT(dataKeyIfa, "ifa")
KX_TEXT(dataKeyDnt, "dnt")
KX_TEXT(dataKeyLanguages, "languages")
KX_TEXT(dataValueDeviceMake, "Apple")
KX_TEXT(dataValueDeviceTypeUnspecified, "Unspecified")
KX_TEXT(dataValueDeviceTypePhone, "Phone")
KX_TEXT(dataValueDeviceTypeTablet, "Tablet")
KX_TEXT(dataValueDeviceTypeTv, "TV")
KX_TEXT(dataValueDeviceTypeCarplay, "CarPlay")
KX_TEXT(dataKeyCarrierName, "carrierName")
KX_TEXT(dataKeyCarrierCode, "carrierCode")
KX_TEXT(dataKeyRadioAccessTechnology, "radioAccessTechnology")
KX_TEXT(dataKeyLocationLatitude, "lat")
KX_TEXT(dataKeyLocationLongitude, "lon")
KX_TEXT(dataKeyLocationHorizontalAccuracy, "horizontalAccuracy")
KX_TEXT(dataKeyLocationAltitude, "altitude")
KX_TEXT(dataKeyLocationVerticalAccuracy, "verticalAccuracy")
KX_TEXT(dataKeyLocationCountry, "country")
KX_TEXT(dataKeyLocationState, "state")
KX_TEXT(dataKeyLocationCity, "city")
KX_TEXT(dataKeyLocationZip, "zip")
KX_TEXT(dataKeyLocationTimezone, "tzOffset")
KX_TEXT(dataKeyConnectionType, "connectionType")
KX_TEXT(dataValueConnectionTypeWifi, "WIFI")
KX_TEXT(dataValueConnectionTypeCellular, "CELLULAR")
KX_TEXT(kReachabilityDidChangeNotification, "kNetworkReachabilityDidChangeNotification")
KX_TEXT(dataKeyAsnBundleId, "bundleId")
KX_TEXT(dataKeyAsnName, "asn")

#undef KX_TEXT

namespace kx {

std::optional<std::string> apiPathGetToken() {
  return textOf(::kxPublisherApiPathGetToken);
}
std::optional<std::string> feedPathLogData() {
  return textOf(::kxPublisherFeedPathLogData);
}

}  // namespace kx
