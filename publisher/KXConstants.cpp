#include "KXPublisher/KXConstants.h"

#include "KXPublisher/KXPublisher.hpp"
#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXLocation.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "transport/KXServicePaths.h"

// What the library calls its constants inside is written down with the class that uses them; here they are
// given to hosts that speak C or C++. iOS hosts get them as Objective-C strings instead.

const double KXPublisherVersionNumber = 1.0;
const unsigned char KXPublisherVersionString[] = "@(#)PROGRAM:KXPublisher  PROJECT:KXPublisher-1\n";

const char *kxPublisherApiPathGetToken = "/api_v0_0_0/do_login";
const char *kxPublisherFeedPathLogData = "/api_v0_0_0/post_msg";

const char *const kxPublisherSdkName = kx::constants::kxPublisherSdkName;
const char *const kxPublisherSdkVersion = kx::constants::kxPublisherSdkVersion;
const double loggingFirstTimeDelay = kx::constants::loggingFirstTimeDelay;
const double loggingTimeInterval = kx::constants::loggingTimeInterval;
const double accessTokenRequestTimeIntervalMinValue = kx::constants::accessTokenRequestTimeIntervalMinValue;
const double accessTokenRequestTimeIntervalMaxValue = kx::constants::accessTokenRequestTimeIntervalMaxValue;
const unsigned accessTokenRequestTimeIntervalMultiplier =
    kx::constants::accessTokenRequestTimeIntervalMultiplier;
const char *const dataKeyPublisherSdkName = kx::constants::dataKeyPublisherSdkName;
const char *const dataKeyPublisherSdkVersion = kx::constants::dataKeyPublisherSdkVersion;
const char *const dataKeyIpAddresses = kx::constants::dataKeyIpAddresses;
const char *const dataKeyEventId = kx::constants::dataKeyEventId;
const char *const dataKeyEventTime = kx::constants::dataKeyEventTime;
const char *const dataKeyDeviceType = kx::constants::dataKeyDeviceType;
const char *const dataKeyDeviceMake = kx::constants::dataKeyDeviceMake;
const char *const dataKeyDeviceModel = kx::constants::dataKeyDeviceModel;
const char *const dataKeyOs = kx::constants::dataKeyOs;
const char *const dataKeyOsVersion = kx::constants::dataKeyOsVersion;
const char *const dataKeyDeviceName = kx::constants::dataKeyDeviceName;
const char *const dataKeyUserAgent = kx::constants::dataKeyUserAgent;
const char *const dataKeyIfa = kx::constants::dataKeyIfa;
const char *const dataKeyDnt = kx::constants::dataKeyDnt;
const char *const dataKeyLanguages = kx::constants::dataKeyLanguages;
const char *const dataValueDeviceMake = kx::constants::dataValueDeviceMake;
const char *const dataValueDeviceTypeUnspecified = kx::constants::dataValueDeviceTypeUnspecified;
const char *const dataValueDeviceTypePhone = kx::constants::dataValueDeviceTypePhone;
const char *const dataValueDeviceTypeTablet = kx::constants::dataValueDeviceTypeTablet;
const char *const dataValueDeviceTypeTv = kx::constants::dataValueDeviceTypeTv;
const char *const dataValueDeviceTypeCarplay = kx::constants::dataValueDeviceTypeCarplay;
const char *const dataKeyCarrierName = kx::constants::dataKeyCarrierName;
const char *const dataKeyCarrierCode = kx::constants::dataKeyCarrierCode;
const char *const dataKeyRadioAccessTechnology = kx::constants::dataKeyRadioAccessTechnology;
const char *const dataKeyLocationLatitude = kx::constants::dataKeyLocationLatitude;
const char *const dataKeyLocationLongitude = kx::constants::dataKeyLocationLongitude;
const char *const dataKeyLocationHorizontalAccuracy = kx::constants::dataKeyLocationHorizontalAccuracy;
const char *const dataKeyLocationAltitude = kx::constants::dataKeyLocationAltitude;
const char *const dataKeyLocationVerticalAccuracy = kx::constants::dataKeyLocationVerticalAccuracy;
const char *const dataKeyLocationCountry = kx::constants::dataKeyLocationCountry;
const char *const dataKeyLocationState = kx::constants::dataKeyLocationState;
const char *const dataKeyLocationCity = kx::constants::dataKeyLocationCity;
const char *const dataKeyLocationZip = kx::constants::dataKeyLocationZip;
const char *const dataKeyLocationTimezone = kx::constants::dataKeyLocationTimezone;
const char *const dataKeyConnectionType = kx::constants::dataKeyConnectionType;
const char *const dataValueConnectionTypeWifi = kx::constants::dataValueConnectionTypeWifi;
const char *const dataValueConnectionTypeCellular = kx::constants::dataValueConnectionTypeCellular;
const char *const kReachabilityDidChangeNotification = kx::constants::kReachabilityDidChangeNotification;
const char *const dataKeyAsnBundleId = kx::constants::dataKeyAsnBundleId;
const char *const dataKeyAsnName = kx::constants::dataKeyAsnName;

namespace kx {

namespace {

std::optional<std::string> current(const char *path) {
  return path == nullptr ? std::nullopt : std::optional<std::string>(path);
}

}  // namespace

std::optional<std::string> apiPathGetToken() {
  return current(::kxPublisherApiPathGetToken);
}
std::optional<std::string> feedPathLogData() {
  return current(::kxPublisherFeedPathLogData);
}

}  // namespace kx
