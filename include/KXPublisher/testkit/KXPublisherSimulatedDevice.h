#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

/** How the simulated device is connected. */
typedef NS_ENUM(NSInteger, KXPublisherSimulatedConnection) {
  KXPublisherSimulatedConnectionNone = 0,
  KXPublisherSimulatedConnectionWifi,
  KXPublisherSimulatedConnectionCellular,
};

/**
 * A whole device in memory, on virtual time, with a collection service on its other side: for an app's unit
 * tests, in the place of the device that the tests run on.
 *
 *     KXPublisherSimulatedDevice *device = [KXPublisherSimulatedDevice install];
 *     [KXPublisher sharedInstanceWithApiToken:@"the API token" hostname:@"collect.example.com"];
 *     [device advance:5];
 *     XCTAssertEqual(device.messages.count, 1);
 *
 * Nothing happens outside `advance:`, `enterBackground` and `returnToForeground`, and nothing reaches the
 * network. A process has one device and one publisher, so tests of one process share them: each begins with
 * `forgetMessages`.
 *
 * To be used on the main thread. As it comes, the device is a phone on Wi-Fi with an advertising identifier,
 * an app that may know the location, and no position. Facts that the library reads once, the device's own and
 * the advertising identifier, are to be set before the publisher is made.
 */
__attribute__((visibility("default")))
@interface KXPublisherSimulatedDevice : NSObject

/**
 * The simulated device, made the process's device by the first call; later calls return the same.
 *
 * To be called before anything else of the library: once the publisher is there, so is the real device.
 * Raises an NSInternalInconsistencyException where it comes too late, and where the process has loaded a
 * second copy of the library, say one in the app and one in its test bundle.
 */
+ (KXPublisherSimulatedDevice *)install;

/* ---- Time, and where the app is. These three raise an NSInternalInconsistencyException where a real device
   would hang for ever. */

/** Lets that many seconds pass, in no time: what falls due runs at its time, before this returns. */
- (void)advance:(NSTimeInterval)seconds;
/** The app leaves the foreground. The report of it has arrived after `advance:` by a second. */
- (void)enterBackground;
/** The app comes back to the foreground; a report follows after 5 s. */
- (void)returnToForeground;

/* ---- What the device tells */

/** The advertising identifier; nil where there is none. All zeros: the user has not agreed to tracking. */
@property(nonatomic, copy, nullable) NSString *advertisingIdentifier;
/** Whether the user lets apps track. */
@property(nonatomic, getter=isAdvertisingTrackingEnabled) BOOL advertisingTrackingEnabled;
/** "iPhone". */
@property(nonatomic, copy, nullable) NSString *model;
/** "12.4". */
@property(nonatomic, copy, nullable) NSString *systemVersion;
/** The user's languages, most wanted first. */
@property(nonatomic, copy) NSArray<NSString *> *preferredLanguages;
/** What the app is installed as, "com.example.Host". */
@property(nonatomic, copy, nullable) NSString *bundleIdentifier;

/* ---- What changes around it */

/** The way to the network. Without one, requests fail as they would, and nothing arrives. */
@property(nonatomic) KXPublisherSimulatedConnection connection;
/** Another SIM: its mobile country code and network code, "310" and "410". */
- (void)insertSIMWithCountryCode:(NSString *)countryCode networkCode:(NSString *)networkCode;
/** No SIM. */
- (void)removeSIM;
/** "CTRadioAccessTechnologyLTE", by CoreTelephony's names; nil without one. */
@property(nonatomic, copy, nullable) NSString *radioAccessTechnology;

/** Whether the user lets the app know the location. */
@property(nonatomic, getter=isLocationAuthorized) BOOL locationAuthorized;
/** The device is somewhere else: degrees, and the accuracy in metres. */
- (void)moveToLatitude:(double)latitude
             longitude:(double)longitude
    horizontalAccuracy:(double)horizontalAccuracy NS_SWIFT_NAME(move(latitude:longitude:horizontalAccuracy:));
/**
 * What the geocoding service finds from now on, wherever the device is; without a country, nothing.
 *
 * @param secondsFromGMT Of the place's time zone: seconds east of Greenwich.
 */
- (void)setPlaceInCountry:(nullable NSString *)country
                    state:(nullable NSString *)state
                     city:(nullable NSString *)city
               postalCode:(nullable NSString *)postalCode
           secondsFromGMT:(NSInteger)secondsFromGMT
    NS_SWIFT_NAME(setPlace(country:state:city:postalCode:secondsFromGMT:));

/* ---- What reaches the collection service */

/**
 * Every message that was sent, by whatever answer it met, in the order of sending: each as the dictionary
 * that the service reads, by the keys of KXPublisherConstants.h.
 */
@property(nonatomic, readonly) NSArray<NSDictionary<NSString *, id> *> *messages;
/** How often the library has logged in, with or without success. */
@property(nonatomic, readonly) NSInteger loginCount;
/** Begins both anew, as for the next test. */
- (void)forgetMessages;

/** The next login is answered so, once: 401, say. */
- (void)answerNextLoginWithStatusCode:(NSInteger)statusCode;
/** The next message is answered so, once: 500, say. */
- (void)answerNextMessageWithStatusCode:(NSInteger)statusCode;
/** The next message does not get through. */
- (void)failNextMessage;
/** No access token that was given out so far is accepted any more. */
- (void)revokeAccessTokens;

/* ---- What the library prints */

/** Every line of the library's log since the beginning. */
@property(nonatomic, readonly) NSArray<NSString *> *logLines;

+ (instancetype)new NS_UNAVAILABLE;
- (instancetype)init NS_UNAVAILABLE;

@end

NS_ASSUME_NONNULL_END
