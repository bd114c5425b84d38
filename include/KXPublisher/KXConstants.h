#pragma once

/* The constants of the library that a host reads, for C and C++. Every text is a zero-terminated UTF-8
 * string. */

#ifdef __cplusplus
extern "C" {
#endif

#define KX_CONSTANT extern __attribute__((visibility("default")))

/* ---- The library */

/** Version number of the library, 1.0. */
KX_CONSTANT const double KXPublisherVersionNumber;
/** Version text of the library, in the form that version-reporting tools search for; it ends with a line
 * feed. */
KX_CONSTANT const unsigned char KXPublisherVersionString[];
/** What the library calls itself in every message. */
KX_CONSTANT const char *const kxPublisherSdkName;
/** The version that it gives there. */
KX_CONSTANT const char *const kxPublisherSdkVersion;

/* ---- Times, in seconds */

/** From the start, and from each return to the foreground, to the first report: 5.0. */
KX_CONSTANT const double loggingFirstTimeDelay;
/** Between the reports in the foreground: 600.0. */
KX_CONSTANT const double loggingTimeInterval;
/** From a first failed login to its retry: 300.0. */
KX_CONSTANT const double accessTokenRequestTimeIntervalMinValue;
/** From a later failed login to its retry, at the most: 3600.0. */
KX_CONSTANT const double accessTokenRequestTimeIntervalMaxValue;
/** By what that delay grows with each further failure: 2. */
KX_CONSTANT const unsigned accessTokenRequestTimeIntervalMultiplier;

/* ---- The service's paths. Variables: a host may set them, or clear them with NULL, before its first call.
 */

/** The login endpoint. */
KX_CONSTANT const char *kxPublisherApiPathGetToken;
/** The message endpoint. */
KX_CONSTANT const char *kxPublisherFeedPathLogData;

/* ---- Keys of a message: the library itself */

/** "sdkName", text. */
KX_CONSTANT const char *const dataKeyPublisherSdkName;
/** "sdkVer", text. */
KX_CONSTANT const char *const dataKeyPublisherSdkVersion;
/** "ips", array of texts: the device's IPv4 addresses; may be empty. */
KX_CONSTANT const char *const dataKeyIpAddresses;
/** "id", text: unique for each message. */
KX_CONSTANT const char *const dataKeyEventId;
/** "eventTime", integer: milliseconds since 1970, whole seconds. */
KX_CONSTANT const char *const dataKeyEventTime;

/* ---- Keys of a message: the device */

/** "deviceCategory", text: one of the values below, or the number of an unknown category. */
KX_CONSTANT const char *const dataKeyDeviceType;
/** "make", text. */
KX_CONSTANT const char *const dataKeyDeviceMake;
/** "model", text. */
KX_CONSTANT const char *const dataKeyDeviceModel;
/** "platform", text: the operating system's name. */
KX_CONSTANT const char *const dataKeyOs;
/** "osVersion", text: the operating system's name and version. */
KX_CONSTANT const char *const dataKeyOsVersion;
/** "name", text: the hardware identifier. */
KX_CONSTANT const char *const dataKeyDeviceName;
/** "userAgent", text: what the system's web engine calls itself. */
KX_CONSTANT const char *const dataKeyUserAgent;
/** "ifa", text: the advertising identifier. */
KX_CONSTANT const char *const dataKeyIfa;
/** "dnt", integer: 1 when the user asked not to be tracked, otherwise 0. */
KX_CONSTANT const char *const dataKeyDnt;
/** "languages", array of texts: the user's preferred languages, most wanted first. */
KX_CONSTANT const char *const dataKeyLanguages;
/** The value of "make". */
KX_CONSTANT const char *const dataValueDeviceMake;
/** Values of "deviceCategory". */
KX_CONSTANT const char *const dataValueDeviceTypeUnspecified;
KX_CONSTANT const char *const dataValueDeviceTypePhone;
KX_CONSTANT const char *const dataValueDeviceTypeTablet;
KX_CONSTANT const char *const dataValueDeviceTypeTv;
KX_CONSTANT const char *const dataValueDeviceTypeCarplay;

/* ---- Keys of a message: the mobile network subscription */

/** "carrierName": reserved, never written. */
KX_CONSTANT const char *const dataKeyCarrierName;
/** "carrierCode", text: mobile country code and network code, joined by a hyphen. */
KX_CONSTANT const char *const dataKeyCarrierCode;
/** "radioAccessTechnology", text: "LTE" and the like. */
KX_CONSTANT const char *const dataKeyRadioAccessTechnology;

/* ---- Keys of a message: the location */

/** "lat", number: degrees. */
KX_CONSTANT const char *const dataKeyLocationLatitude;
/** "lon", number: degrees. */
KX_CONSTANT const char *const dataKeyLocationLongitude;
/** "horizontalAccuracy", number: metres. */
KX_CONSTANT const char *const dataKeyLocationHorizontalAccuracy;
/** "altitude", number: metres. */
KX_CONSTANT const char *const dataKeyLocationAltitude;
/** "verticalAccuracy", number: metres; negative when the altitude is invalid. */
KX_CONSTANT const char *const dataKeyLocationVerticalAccuracy;
/** "country", text: ISO code. */
KX_CONSTANT const char *const dataKeyLocationCountry;
/** "state", text. */
KX_CONSTANT const char *const dataKeyLocationState;
/** "city", text. */
KX_CONSTANT const char *const dataKeyLocationCity;
/** "zip", text: postal code. */
KX_CONSTANT const char *const dataKeyLocationZip;
/** "tzOffset", integer: seconds east of Greenwich. */
KX_CONSTANT const char *const dataKeyLocationTimezone;

/* ---- Keys of a message: the connection */

/** "connectionType", text: one of the values below; left out without a connection. */
KX_CONSTANT const char *const dataKeyConnectionType;
KX_CONSTANT const char *const dataValueConnectionTypeWifi;
KX_CONSTANT const char *const dataValueConnectionTypeCellular;
/** Name of the notification that the library posts when the way to the network has changed. */
KX_CONSTANT const char *const kReachabilityDidChangeNotification;

/* ---- Keys of a message: the host application */

/** "bundleId", text: the bundle identifier. */
KX_CONSTANT const char *const dataKeyAsnBundleId;
/** "asn", text: the executable's name. */
KX_CONSTANT const char *const dataKeyAsnName;

#undef KX_CONSTANT

#ifdef __cplusplus
}
#endif
