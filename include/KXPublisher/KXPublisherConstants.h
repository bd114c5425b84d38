#pragma once

#import <Foundation/Foundation.h>

/* The constants of the library that a host reads. */

NS_ASSUME_NONNULL_BEGIN

#define KX_CONSTANT FOUNDATION_EXPORT __attribute__((visibility("default")))

/* ---- The library */

/** Version number of the library, 1.0. */
KX_CONSTANT const double KXPublisherVersionNumber;
/** Version text of the library, in the form that version-reporting tools search for; it ends with a line
 * feed. */
KX_CONSTANT const unsigned char KXPublisherVersionString[];
/** What the library calls itself in every message. */
KX_CONSTANT NSString *const kxPublisherSdkName;
/** The version that it gives there. */
KX_CONSTANT NSString *const kxPublisherSdkVersion;

/* ---- Times, in seconds */

/** From the start, and from each return to the foreground, to the first report: 5.0. */
KX_CONSTANT const NSTimeInterval loggingFirstTimeDelay;
/** Between the reports in the foreground: 600.0. */
KX_CONSTANT const NSTimeInterval loggingTimeInterval;
/** From a first failed login to its retry: 300.0. */
KX_CONSTANT const NSTimeInterval accessTokenRequestTimeIntervalMinValue;
/** From a later failed login to its retry, at the most: 3600.0. */
KX_CONSTANT const NSTimeInterval accessTokenRequestTimeIntervalMaxValue;
/** By what that delay grows with each further failure: 2. */
KX_CONSTANT const NSUInteger accessTokenRequestTimeIntervalMultiplier;

/* ---- The service's paths. Variables: a host may set them, or clear them with nil, before its first call. */

/** The login endpoint. */
KX_CONSTANT NSString *_Nullable kxPublisherApiPathGetToken;
/** The message endpoint. */
KX_CONSTANT NSString *_Nullable kxPublisherFeedPathLogData;

/* ---- Keys of a message: the library itself */

/** "sdkName", text. */
KX_CONSTANT NSString *const dataKeyPublisherSdkName;
/** "sdkVer", text. */
KX_CONSTANT NSString *const dataKeyPublisherSdkVersion;
/** "ips", array of texts: the device's IPv4 addresses; may be empty. */
KX_CONSTANT NSString *const dataKeyIpAddresses;
/** "id", text: unique for each message. */
KX_CONSTANT NSString *const dataKeyEventId;
/** "eventTime", integer: milliseconds since 1970, whole seconds. */
KX_CONSTANT NSString *const dataKeyEventTime;

/* ---- Keys of a message: the device */

/** "deviceCategory", text: one of the values below, or the number of an unknown category. */
KX_CONSTANT NSString *const dataKeyDeviceType;
/** "make", text. */
KX_CONSTANT NSString *const dataKeyDeviceMake;
/** "model", text. */
KX_CONSTANT NSString *const dataKeyDeviceModel;
/** "platform", text: the operating system's name. */
KX_CONSTANT NSString *const dataKeyOs;
/** "osVersion", text: the operating system's name and version. */
KX_CONSTANT NSString *const dataKeyOsVersion;
/** "name", text: the hardware identifier. */
KX_CONSTANT NSString *const dataKeyDeviceName;
/** "userAgent", text: what the system's web engine calls itself. */
KX_CONSTANT NSString *const dataKeyUserAgent;
/** "ifa", text: the advertising identifier. */
KX_CONSTANT NSString *const dataKeyIfa;
/** "dnt", integer: 1 when the user asked not to be tracked, otherwise 0. */
KX_CONSTANT NSString *const dataKeyDnt;
/** "languages", array of texts: the user's preferred languages, most wanted first. */
KX_CONSTANT NSString *const dataKeyLanguages;
/** The value of "make". */
KX_CONSTANT NSString *const dataValueDeviceMake;
/** Values of "deviceCategory". */
KX_CONSTANT NSString *const dataValueDeviceTypeUnspecified;
KX_CONSTANT NSString *const dataValueDeviceTypePhone;
KX_CONSTANT NSString *const dataValueDeviceTypeTablet;
KX_CONSTANT NSString *const dataValueDeviceTypeTv;
KX_CONSTANT NSString *const dataValueDeviceTypeCarplay;

/* ---- Keys of a message: the mobile network subscription */

/** "carrierName": reserved, never written. */
KX_CONSTANT NSString *const dataKeyCarrierName;
/** "carrierCode", text: mobile country code and network code, joined by a hyphen. */
KX_CONSTANT NSString *const dataKeyCarrierCode;
/** "radioAccessTechnology", text: "LTE" and the like. */
KX_CONSTANT NSString *const dataKeyRadioAccessTechnology;

/* ---- Keys of a message: the location */

/** "lat", number: degrees. */
KX_CONSTANT NSString *const dataKeyLocationLatitude;
/** "lon", number: degrees. */
KX_CONSTANT NSString *const dataKeyLocationLongitude;
/** "horizontalAccuracy", number: metres. */
KX_CONSTANT NSString *const dataKeyLocationHorizontalAccuracy;
/** "altitude", number: metres. */
KX_CONSTANT NSString *const dataKeyLocationAltitude;
/** "verticalAccuracy", number: metres; negative when the altitude is invalid. */
KX_CONSTANT NSString *const dataKeyLocationVerticalAccuracy;
/** "country", text: ISO code. */
KX_CONSTANT NSString *const dataKeyLocationCountry;
/** "state", text. */
KX_CONSTANT NSString *const dataKeyLocationState;
/** "city", text. */
KX_CONSTANT NSString *const dataKeyLocationCity;
/** "zip", text: postal code. */
KX_CONSTANT NSString *const dataKeyLocationZip;
/** "tzOffset", integer: seconds east of Greenwich. */
KX_CONSTANT NSString *const dataKeyLocationTimezone;

/* ---- Keys of a message: the connection */

/** "connectionType", text: one of the values below; left out without a connection. */
KX_CONSTANT NSString *const dataKeyConnectionType;
KX_CONSTANT NSString *const dataValueConnectionTypeWifi;
KX_CONSTANT NSString *const dataValueConnectionTypeCellular;
/** Name of the notification that the library posts when the way to the network has changed. */
KX_CONSTANT NSNotificationName const kReachabilityDidChangeNotification NS_SWIFT_NAME(kReachabilityDidChangeNotification);

/* ---- Keys of a message: the host application */

/** "bundleId", text: the bundle identifier. */
KX_CONSTANT NSString *const dataKeyAsnBundleId;
/** "asn", text: the executable's name. */
KX_CONSTANT NSString *const dataKeyAsnName;

#undef KX_CONSTANT

NS_ASSUME_NONNULL_END
