#pragma once

/* The constants of KXConstants.h under names that GObject Introspection can give to every language:
 * dataKeyIfa is KX_DATA_KEY_IFA in C, KxPublisher.DATA_KEY_IFA elsewhere. */

/* ---- The library */

/**
 * KX_PUBLISHER_VERSION_NUMBER:
 *
 * Version number of the library, 1.0.
 */
#define KX_PUBLISHER_VERSION_NUMBER 1.0

/**
 * KX_PUBLISHER_VERSION_STRING:
 *
 * Version text of the library, in the form that version-reporting tools search for; it ends with a line
 * feed.
 */
#define KX_PUBLISHER_VERSION_STRING "@(#)PROGRAM:KXPublisher  PROJECT:KXPublisher-1\n"

/**
 * KX_PUBLISHER_SDK_NAME:
 *
 * What the library calls itself in every message.
 */
#define KX_PUBLISHER_SDK_NAME "KXPublisher iOS"

/**
 * KX_PUBLISHER_SDK_VERSION:
 *
 * The version that it gives there.
 */
#define KX_PUBLISHER_SDK_VERSION "v1.0"

/* ---- Times, in seconds */

/**
 * KX_LOGGING_FIRST_TIME_DELAY:
 *
 * From the start, and from each return to the foreground, to the first report: 5.0
 * seconds.
 */
#define KX_LOGGING_FIRST_TIME_DELAY 5.0

/**
 * KX_LOGGING_TIME_INTERVAL:
 *
 * Between the reports in the foreground: 600.0 seconds.
 */
#define KX_LOGGING_TIME_INTERVAL 600.0

/**
 * KX_ACCESS_TOKEN_REQUEST_TIME_INTERVAL_MIN_VALUE:
 *
 * From a first failed login to its retry: 300.0 seconds.
 */
#define KX_ACCESS_TOKEN_REQUEST_TIME_INTERVAL_MIN_VALUE 300.0

/**
 * KX_ACCESS_TOKEN_REQUEST_TIME_INTERVAL_MAX_VALUE:
 *
 * From a later failed login to its retry, at the most: 3600.0 seconds.
 */
#define KX_ACCESS_TOKEN_REQUEST_TIME_INTERVAL_MAX_VALUE 3600.0

/**
 * KX_ACCESS_TOKEN_REQUEST_TIME_INTERVAL_MULTIPLIER:
 *
 * By what that delay grows with each further failure: 2.
 */
#define KX_ACCESS_TOKEN_REQUEST_TIME_INTERVAL_MULTIPLIER 2u

/* ---- The service's paths; kx_publisher_set_service_paths() sets others */

/**
 * KX_PUBLISHER_API_PATH_GET_TOKEN:
 *
 * The login endpoint, as it is at the start.
 */
#define KX_PUBLISHER_API_PATH_GET_TOKEN "/api_v0_0_0/do_login"

/**
 * KX_PUBLISHER_FEED_PATH_LOG_DATA:
 *
 * The message endpoint, as it is at the start.
 */
#define KX_PUBLISHER_FEED_PATH_LOG_DATA "/api_v0_0_0/post_msg"

/* ---- Keys of a message: the library itself */

/**
 * KX_DATA_KEY_PUBLISHER_SDK_NAME:
 *
 * "sdkName", text.
 */
#define KX_DATA_KEY_PUBLISHER_SDK_NAME "sdkName"

/**
 * KX_DATA_KEY_PUBLISHER_SDK_VERSION:
 *
 * "sdkVer", text.
 */
#define KX_DATA_KEY_PUBLISHER_SDK_VERSION "sdkVer"

/**
 * KX_DATA_KEY_IP_ADDRESSES:
 *
 * "ips", array of texts: the device's IPv4 addresses; may be empty.
 */
#define KX_DATA_KEY_IP_ADDRESSES "ips"

/**
 * KX_DATA_KEY_EVENT_ID:
 *
 * "id", text: unique for each message.
 */
#define KX_DATA_KEY_EVENT_ID "id"

/**
 * KX_DATA_KEY_EVENT_TIME:
 *
 * "eventTime", integer: milliseconds since 1970, whole seconds.
 */
#define KX_DATA_KEY_EVENT_TIME "eventTime"

/* ---- Keys of a message: the device */

/**
 * KX_DATA_KEY_DEVICE_TYPE:
 *
 * "deviceCategory", text: one of the values below, or the number of an unknown category.
 */
#define KX_DATA_KEY_DEVICE_TYPE "deviceCategory"

/**
 * KX_DATA_KEY_DEVICE_MAKE:
 *
 * "make", text.
 */
#define KX_DATA_KEY_DEVICE_MAKE "make"

/**
 * KX_DATA_KEY_DEVICE_MODEL:
 *
 * "model", text.
 */
#define KX_DATA_KEY_DEVICE_MODEL "model"

/**
 * KX_DATA_KEY_OS:
 *
 * "platform", text: the operating system's name.
 */
#define KX_DATA_KEY_OS "platform"

/**
 * KX_DATA_KEY_OS_VERSION:
 *
 * "osVersion", text: the operating system's name and version.
 */
#define KX_DATA_KEY_OS_VERSION "osVersion"

/**
 * KX_DATA_KEY_DEVICE_NAME:
 *
 * "name", text: the hardware identifier.
 */
#define KX_DATA_KEY_DEVICE_NAME "name"

/**
 * KX_DATA_KEY_USER_AGENT:
 *
 * "userAgent", text: what the system's web engine calls itself.
 */
#define KX_DATA_KEY_USER_AGENT "userAgent"

/**
 * KX_DATA_KEY_IFA:
 *
 * "ifa", text: the advertising identifier.
 */
#define KX_DATA_KEY_IFA "ifa"

/**
 * KX_DATA_KEY_DNT:
 *
 * "dnt", integer: 1 when the user asked not to be tracked, otherwise 0.
 */
#define KX_DATA_KEY_DNT "dnt"

/**
 * KX_DATA_KEY_LANGUAGES:
 *
 * "languages", array of texts: the user's preferred languages, most wanted first.
 */
#define KX_DATA_KEY_LANGUAGES "languages"

/**
 * KX_DATA_VALUE_DEVICE_MAKE:
 *
 * The value of "make".
 */
#define KX_DATA_VALUE_DEVICE_MAKE "Apple"

/**
 * KX_DATA_VALUE_DEVICE_TYPE_UNSPECIFIED:
 *
 * A value of "deviceCategory".
 */
#define KX_DATA_VALUE_DEVICE_TYPE_UNSPECIFIED "Unspecified"

/**
 * KX_DATA_VALUE_DEVICE_TYPE_PHONE:
 *
 * A value of "deviceCategory".
 */
#define KX_DATA_VALUE_DEVICE_TYPE_PHONE "Phone"

/**
 * KX_DATA_VALUE_DEVICE_TYPE_TABLET:
 *
 * A value of "deviceCategory".
 */
#define KX_DATA_VALUE_DEVICE_TYPE_TABLET "Tablet"

/**
 * KX_DATA_VALUE_DEVICE_TYPE_TV:
 *
 * A value of "deviceCategory".
 */
#define KX_DATA_VALUE_DEVICE_TYPE_TV "TV"

/**
 * KX_DATA_VALUE_DEVICE_TYPE_CARPLAY:
 *
 * A value of "deviceCategory".
 */
#define KX_DATA_VALUE_DEVICE_TYPE_CARPLAY "CarPlay"

/* ---- Keys of a message: the mobile network subscription */

/**
 * KX_DATA_KEY_CARRIER_NAME:
 *
 * "carrierName": reserved, never written.
 */
#define KX_DATA_KEY_CARRIER_NAME "carrierName"

/**
 * KX_DATA_KEY_CARRIER_CODE:
 *
 * "carrierCode", text: mobile country code and network code, joined by a hyphen.
 */
#define KX_DATA_KEY_CARRIER_CODE "carrierCode"

/**
 * KX_DATA_KEY_RADIO_ACCESS_TECHNOLOGY:
 *
 * "radioAccessTechnology", text: "LTE" and the like.
 */
#define KX_DATA_KEY_RADIO_ACCESS_TECHNOLOGY "radioAccessTechnology"

/* ---- Keys of a message: the location */

/**
 * KX_DATA_KEY_LOCATION_LATITUDE:
 *
 * "lat", number: degrees.
 */
#define KX_DATA_KEY_LOCATION_LATITUDE "lat"

/**
 * KX_DATA_KEY_LOCATION_LONGITUDE:
 *
 * "lon", number: degrees.
 */
#define KX_DATA_KEY_LOCATION_LONGITUDE "lon"

/**
 * KX_DATA_KEY_LOCATION_HORIZONTAL_ACCURACY:
 *
 * "horizontalAccuracy", number: metres.
 */
#define KX_DATA_KEY_LOCATION_HORIZONTAL_ACCURACY "horizontalAccuracy"

/**
 * KX_DATA_KEY_LOCATION_ALTITUDE:
 *
 * "altitude", number: metres.
 */
#define KX_DATA_KEY_LOCATION_ALTITUDE "altitude"

/**
 * KX_DATA_KEY_LOCATION_VERTICAL_ACCURACY:
 *
 * "verticalAccuracy", number: metres; negative when the altitude is invalid.
 */
#define KX_DATA_KEY_LOCATION_VERTICAL_ACCURACY "verticalAccuracy"

/**
 * KX_DATA_KEY_LOCATION_COUNTRY:
 *
 * "country", text: ISO code.
 */
#define KX_DATA_KEY_LOCATION_COUNTRY "country"

/**
 * KX_DATA_KEY_LOCATION_STATE:
 *
 * "state", text.
 */
#define KX_DATA_KEY_LOCATION_STATE "state"

/**
 * KX_DATA_KEY_LOCATION_CITY:
 *
 * "city", text.
 */
#define KX_DATA_KEY_LOCATION_CITY "city"

/**
 * KX_DATA_KEY_LOCATION_ZIP:
 *
 * "zip", text: postal code.
 */
#define KX_DATA_KEY_LOCATION_ZIP "zip"

/**
 * KX_DATA_KEY_LOCATION_TIMEZONE:
 *
 * "tzOffset", integer: seconds east of Greenwich.
 */
#define KX_DATA_KEY_LOCATION_TIMEZONE "tzOffset"

/* ---- Keys of a message: the connection */

/**
 * KX_DATA_KEY_CONNECTION_TYPE:
 *
 * "connectionType", text: one of the values below; left out without a connection.
 */
#define KX_DATA_KEY_CONNECTION_TYPE "connectionType"

/**
 * KX_DATA_VALUE_CONNECTION_TYPE_WIFI:
 *
 * A value of "connectionType".
 */
#define KX_DATA_VALUE_CONNECTION_TYPE_WIFI "WIFI"

/**
 * KX_DATA_VALUE_CONNECTION_TYPE_CELLULAR:
 *
 * A value of "connectionType".
 */
#define KX_DATA_VALUE_CONNECTION_TYPE_CELLULAR "CELLULAR"

/**
 * KX_REACHABILITY_DID_CHANGE_NOTIFICATION:
 *
 * Name of the notification that the library posts when the way to the network has changed.
 */
#define KX_REACHABILITY_DID_CHANGE_NOTIFICATION "kNetworkReachabilityDidChangeNotification"

/* ---- Keys of a message: the host application */

/**
 * KX_DATA_KEY_ASN_BUNDLE_ID:
 *
 * "bundleId", text: the bundle identifier.
 */
#define KX_DATA_KEY_ASN_BUNDLE_ID "bundleId"

/**
 * KX_DATA_KEY_ASN_NAME:
 *
 * "asn", text: the executable's name.
 */
#define KX_DATA_KEY_ASN_NAME "asn"
