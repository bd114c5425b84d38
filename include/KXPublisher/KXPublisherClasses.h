#pragma once

/* Every class of the library, in Objective-C and Swift, for hosts that look inside or bring a data provider
 * of their own. An ordinary host includes KXPublisher.h alone; what it does not use of these, a linker that
 * takes the library from an archive leaves out.
 *
 * Each class is the face of one of the library's own: the same object of the library always has the same
 * face, as long as the host holds it, and the single instances always. What is said of threads there holds
 * here: unless a comment says otherwise, everything may be called from any thread and returns at once. */

#import <CoreLocation/CoreLocation.h>
#import <KXPublisher/KXPublisher.h>

@class CTCarrier, CTTelephonyNetworkInfo, KXData, KXLog, KXLogger, KXNetworking, KXScheduleInfo, KXScheduler,
    UIDevice;

/* Annotations that not every compiler knows. */
#ifdef NS_SWIFT_DISABLE_ASYNC
#define KX_NEVER_ASYNC NS_SWIFT_DISABLE_ASYNC
#else
#define KX_NEVER_ASYNC
#endif
#define KX_OPEN_CLASS __attribute__((visibility("default"))) API_AVAILABLE(ios(9.0)) KX_SENDABLE
#define KX_CLASS __attribute__((objc_subclassing_restricted)) KX_OPEN_CLASS

/* Later systems deprecate some of the classes that appear here. */
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

NS_ASSUME_NONNULL_BEGIN

/** A flat map of facts: texts, numbers, booleans, arrays and maps of these, under texts. */
typedef NSDictionary<NSString *, id> KXFacts;

/* ---- The log */

/** How much is printed. Any other number can be passed too; see `log:message:`. */
typedef NS_ENUM(int64_t, KXLogLevel) {
  KXLogLevelOff = 0,
  KXLogLevelError = 1,
  KXLogLevelWarn = 2,
  KXLogLevelInfo = 3,
  KXLogLevelDebug = 4,
};

/** The library's own log, written to the system's console. */
KX_CLASS @interface KXLog : NSObject

/** The one log. The first call in the process makes it with that level; later calls ignore the argument. */
+ (KXLog *)sharedInstanceWithLogLevel:(KXLogLevel)logLevel NS_SWIFT_NAME(sharedInstance(logLevel:));
/** The one log, made at level Error unless it exists. */
+ (KXLog *)sharedInstance;

/** The highest level that is printed. */
@property(atomic) KXLogLevel logLevel;

/** Prints the message, if `level` is not above `logLevel`; one at level Off is printed, too. Raises
 * NSRangeException when the level passes that filter and is none of the five. */
- (void)log:(KXLogLevel)level message:(NSString *)message;

- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
@end

/** Fills the format, whether or not the line will be printed, and logs it at level Error. */
FOUNDATION_EXPORT __attribute__((visibility("default"))) void KXLogError(NSString *format, ...)
    NS_FORMAT_FUNCTION(1, 2);

/* ---- Timers */

/** What the scheduler keeps of one repeating timer. Letting go of a record stops its timer. */
KX_CLASS @interface KXScheduleInfo : NSObject

- (instancetype)initWithTimer:(nullable NSTimer *)timer
                    forTarget:(nullable id)target
                     selector:(nullable SEL)selector
             withTimeInterval:(NSTimeInterval)timeInterval;

/** The timer that is installed for the pair; no longer valid while the pair is paused. */
@property(atomic, strong, nullable) NSTimer *timer;
/** The object that the timer calls, kept alive. */
@property(atomic, strong, nullable) id target;
/** The operation that it calls there, with the firing timer as the argument. */
@property(atomic, nullable) SEL selector;
/** The period in seconds. */
@property(atomic) NSTimeInterval timeInterval;

- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
@end

/** A registry of repeating timers on the main run loop, one for each pair of a target, which it keeps alive,
 * and an operation of it. An absent target or operation names no pair: such a call does nothing. Meant to be
 * called on the main thread: two calls for the same pair at once may both install a timer. */
KX_CLASS @interface KXScheduler : NSObject

+ (KXScheduler *)sharedInstance;
/** What a pair goes by: "t:%@,s:%@" of the target's description and the operation's name. */
+ (nullable NSString *)keyForTarget:(nullable id)target selector:(nullable SEL)selector;

/** The registry: a record for each pair, under what the pair goes by. The timers of records that are replaced
 * stop when nobody holds them any more. */
@property(atomic, copy) NSDictionary<NSString *, KXScheduleInfo *> *scheduleInfoMap;

/** The pair's record; nil when it has none. */
- (nullable KXScheduleInfo *)scheduleInfoForTarget:(nullable id)target selector:(nullable SEL)selector;
/** Stores the record for the pair, replacing an earlier one. */
- (void)setScheduleInfo:(KXScheduleInfo *)scheduleInfo
              forTarget:(nullable id)target
               selector:(nullable SEL)selector;
/** Has the operation called every so many seconds, for the first time after one period. A timer that already
 * runs with exactly that period is left untouched; any other one is replaced. */
- (void)scheduleTimerForTarget:(nullable id)target
                      selector:(nullable SEL)selector
              withTimeInverval:(NSTimeInterval)timeInterval;
/** The same with another order of arguments. */
- (void)setTimeInterval:(NSTimeInterval)timeInterval
              forTarget:(nullable id)target
               selector:(nullable SEL)selector;
/** Stops the pair's timer and keeps its record. */
- (void)pauseTimerForTarget:(nullable id)target selector:(nullable SEL)selector;
/** Starts a paused pair again with the period of its record. */
- (void)resumeTimerForTarget:(nullable id)target selector:(nullable SEL)selector;
/** Stops the pair's timer and forgets the pair. */
- (void)removeTimerForTarget:(nullable id)target selector:(nullable SEL)selector;
@end

/* ---- The data providers */

/** The base of every data provider, which the host may derive one of its own from:
 *
 *     @interface Weather : KXData
 *     @end
 *     @implementation Weather
 *     + (BOOL)needsMonitoring { return NO; }
 *     - (BOOL)hasPermissions { return YES; }
 *     - (KXFacts *)computeData { return @{ @"weather" : @"fair" }; }
 *     @end
 *
 *     publisher.dataProviders = [publisher.dataProviders arrayByAddingObject:[[Weather alloc] init]];
 *
 * What a provider has to override and does not raises NSInternalInconsistencyException with the reason "You
 * must override %@ in a subclass". A provider lives as long as the process. */
KX_OPEN_CLASS @interface KXData : NSObject

- (instancetype)init;

/** The class's one instance. Raises unless the class supplies it. */
+ (KXData *)sharedInstance;
/** Raises on every class. */
+ (KXData *)sharedInstanceWithMonitoring:(BOOL)monitoring NS_SWIFT_NAME(sharedInstance(monitoring:));
/** Whether the provider wants to be recomputed periodically. Raises unless overridden. */
+ (BOOL)needsMonitoring;
/** That period in seconds. Raises unless overridden: NSInternalInconsistencyException where monitoring is
 * needed, otherwise NSInvalidArgumentException. */
+ (NSTimeInterval)monitoringTimeInterval;

/** Whether the provider may gather its facts now. Called on a background queue, and on the main thread where
 * monitoring is needed. Raises unless overridden. */
- (BOOL)hasPermissions;
/** The provider's facts, perhaps none. Called on the provider's own serial queue, never on the main thread. A
 * fact that is no text, number, boolean, array or map is left out. Raises unless overridden. */
- (KXFacts *)computeData;
/** The provider's own set-up, within `init`, before the base's. Does nothing unless overridden. */
- (void)instanceDidStartInit;

/** A copy of the current facts; nil until they have been computed or reset for the first time. */
@property(atomic, readonly, copy, nullable) KXFacts *data;
/** Asks for a recomputation. Of several requests to change the facts the latest wins. */
- (void)updateData;
/** Installs a copy of facts that were gathered elsewhere. */
- (void)updateData:(KXFacts *)data;
/** Replaces the facts by an empty map. */
- (void)resetData;

/** Whether periodic recomputation is switched on. To set it where monitoring is not needed raises
 * NSInvalidArgumentException. */
@property(atomic, getter=isMonitoring) BOOL monitoring;
/** Starts or stops the provider's timer as the switch and the permissions say. Stopping empties the facts. */
- (void)updateMonitoring;
/** What the timer calls, on the main thread; calls `updateData`. */
- (void)updateDataWithTimer:(nullable NSTimer *)timer NS_SWIFT_NAME(updateData(timer:));
/** The registry of the monitoring timers; nil while the provider is being built. */
@property(atomic, readonly, strong, nullable) KXScheduler *sharedScheduler;
@end

/** Describes the device itself. Its facts are computed once in a process. Each reader asks the system afresh;
 * `userAgent` and `computeData` must not be called on the main thread, where they would wait for themselves.
 */
KX_CLASS @interface KXDevice : KXData
+ (KXDevice *)sharedInstance;
@property(atomic, strong, nullable) UIDevice *currentDevice;
@property(readonly, copy, nullable) NSString *deviceType;
@property(readonly, copy, nullable) NSString *deviceName;
@property(readonly, copy, nullable) NSString *userAgent;
@property(readonly, copy, nullable) NSString *ifa;
/** 1 when the user asked not to be tracked, otherwise 0. */
@property(readonly, copy, nullable) NSNumber *dnt;
@property(readonly, copy, nullable) NSArray<NSString *> *languages;
- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
@end

/** Describes the mobile network subscription. */
KX_CLASS @interface KXCarrier : KXData
+ (KXCarrier *)sharedInstance;
/** Makes a new telephony object, reads its carrier and has it report changes. */
- (void)initCarrierInfo;
@property(atomic, readonly, strong, nullable) CTTelephonyNetworkInfo *networkInfo;
@property(atomic, readonly, strong, nullable) CTCarrier *carrierInfo;
- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
@end

/** Reports where the device is, first the position, and once it has been geocoded, position and place. The
 * arguments of the location manager's reports are not read. */
KX_CLASS @interface KXLocation : KXData<CLLocationManagerDelegate>
+ (KXLocation *)sharedInstance;
@property(atomic, readonly, strong, nullable) CLLocationManager *locationManager;
@property(atomic, readonly, strong, nullable) CLGeocoder *geocoder;
- (void)locationManager:(CLLocationManager *)manager
    didChangeAuthorizationStatus:(CLAuthorizationStatus)status;
- (void)locationManager:(CLLocationManager *)manager didUpdateLocations:(NSArray<CLLocation *> *)locations;
- (void)locationManagerDidPauseLocationUpdates:(CLLocationManager *)manager;
- (void)locationManagerDidResumeLocationUpdates:(CLLocationManager *)manager;
- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
@end

/** How the network is reached. */
typedef NS_ENUM(NSInteger, KXNetworkStatus) {
  KXNetworkStatusNone = 0,
  KXNetworkStatusWifi = 1,
  KXNetworkStatusCellular = 2,
};

/** Reports the type of the connection. It is the sender of `kReachabilityDidChangeNotification`. */
KX_CLASS @interface KXConnection : KXData
+ (KXConnection *)sharedInstance;
/** The status now. */
@property(readonly) KXNetworkStatus currentReachabilityStatus;
- (KXNetworkStatus)networkStatusForFlags:(uint32_t)flags;
/** Has changes reported on the calling thread's run loop. */
- (void)startNotifier;
/** No longer has them reported there. */
- (void)stopNotifier;
- (void)reachabilityDidChange:(nullable NSNotification *)notification;
/** The SCNetworkReachabilityRef as a pointer value; nil when none could be made. */
@property(atomic, readonly, strong, nullable) NSValue *reachability;
- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
@end

/** Identifies the host application. */
KX_CLASS @interface KXAsn : KXData
+ (KXAsn *)sharedInstance;
- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
@end

/* ---- The transport */

/** What a task is told when it ends. */
typedef void (^KXUploadCompletionHandler)(NSData *_Nullable body, NSURLResponse *_Nullable response,
                                          NSError *_Nullable error);

/** The client of the collection service. It holds the access token that the service gives in exchange for the
 * API token, and sends each message once. */
KX_CLASS @interface KXNetworking : NSObject

/** The one client, made by the first call; later calls ignore their arguments. */
+ (KXNetworking *)sharedInstanceWithApiToken:(nullable NSString *)apiToken
                                    hostname:(nullable NSString *)hostname
    NS_SWIFT_NAME(sharedInstance(apiToken:hostname:));
/** A client that has just started its first login. */
- (instancetype)initWithApiToken:(nullable NSString *)apiToken hostname:(nullable NSString *)hostname;

/** "https://%@%@" of the host name and the path, which gets a leading slash if it has none. */
+ (nullable NSURL *)urlForApiPath:(nullable NSString *)path hostname:(nullable NSString *)hostname;
/** Compact JSON with plain slashes; nil for what cannot be serialised. */
+ (nullable NSString *)jsonForObject:(nullable id)object;
/** A login request, not yet started. Nil when the path, the params or the session is absent, the URL is
 * refused or the params cannot be serialised. */
+ (nullable NSURLSessionUploadTask *)apiUploadTaskForPath:(nullable NSString *)path
                                                 hostname:(nullable NSString *)hostname
                                                   params:(nullable NSDictionary<NSString *, id> *)params
                                                  session:(nullable NSURLSession *)session
                                        completionHandler:(KXUploadCompletionHandler)completionHandler;
/** A message request with JSON text as its data, not yet started. Nil when the session, the token, the data
 * or the message path is absent, or the URL is refused. */
+ (nullable NSURLSessionUploadTask *)feedUploadTaskForData:(nullable NSData *)data
                                                  hostname:(nullable NSString *)hostname
                                               accessToken:(nullable NSString *)accessToken
                                                   session:(nullable NSURLSession *)session
                                         completionHandler:(KXUploadCompletionHandler)completionHandler;
/** The IPv4 addresses of the device's interfaces. */
+ (NSArray<NSString *> *)getIPAddresses;

/** Sends one login request; the handler receives the token, or nil after a failure, which has been logged. It
 * is never called when no request could be built. */
- (void)getAccessTokenWithCompletionHandler:(void (^)(NSString *_Nullable accessToken))completionHandler
    KX_NEVER_ASYNC;
/** Asks for a new token, unless a login is outstanding or a retry pending. The argument is not read. */
- (void)updateAccessToken:(nullable id)sender;
/** The next longer delay: 300, 600, 1200, 2400, 3600, 3600 ... s. */
- (void)updateLastAccessTokenRequestTimeInterval;
/** Sends one message, best effort. Dropped while there is no access token. */
- (void)sendData:(KXFacts *)message;

@property(atomic, copy, nullable) NSString *apiToken;
@property(atomic, copy, nullable) NSString *hostname;
/** Nil until a login has succeeded. */
@property(atomic, copy, nullable) NSString *accessToken;
/** When it arrived, in seconds since 1970; 0 before that. */
@property(atomic) NSTimeInterval accessTokenLastUpdated;
/** The delay of the pending retry in seconds; 0 after a success. */
@property(atomic) NSTimeInterval lastAccessTokenRequestTimeInterval;
/** The latest retry timer; nil before the first. */
@property(atomic, strong, nullable) NSTimer *accessTokenRequestTimer;
/** Whether a login is outstanding. */
@property(atomic) BOOL accessTokenWaitingResponse;

- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
@end

/** Compresses request bodies. */
KX_CLASS @interface KXGzipUtility : NSObject
/** The input as one gzip member. Nil, with one line in the log, when it is absent, empty, or grows by more
 * than a hundredth and 12 bytes. */
+ (nullable NSData *)gzipData:(nullable NSData *)data;
- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
@end

/* ---- The publisher */

/** Hands finished messages to the transport. */
KX_CLASS @interface KXLogger : NSObject
/** The one logger, made by the first call; later calls ignore their arguments. */
+ (KXLogger *)sharedInstanceWithApiToken:(nullable NSString *)apiToken
                                hostname:(nullable NSString *)hostname
    NS_SWIFT_NAME(sharedInstance(apiToken:hostname:));
/** A logger bound to the process's transport client, which is made for these arguments unless it exists. */
- (instancetype)initWithApiToken:(nullable NSString *)apiToken hostname:(nullable NSString *)hostname;
/** Passes the message on before returning, or, when `async`, from a background queue. */
- (void)logData:(KXFacts *)data async:(BOOL)async;
/** The transport client. Without one messages are dropped. */
@property(atomic, strong, nullable) KXNetworking *kxNetworking;
- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
@end

@interface KXPublisher (Classes)
/** A publisher of its own, running. Hosts use the shared one. */
- (instancetype)initWithApiToken:(nullable NSString *)apiToken hostname:(nullable NSString *)hostname;
/** In the order in which their facts are merged: of a fact that several know, the last one's counts. */
@property(atomic, copy) NSArray<KXData *> *dataProviders;
/** Where messages go. Without one they are dropped. */
@property(atomic, strong, nullable) KXLogger *kxLogger;
/** The repeating report's timer; nil in the background. */
@property(atomic, strong, nullable) NSTimer *logTimer;
/** What `enableDebugging` and `disableDebugging` switch. */
@property(atomic, strong, nullable) KXLog *kxLog;
/** A new message of what is known now. */
@property(readonly, copy) KXFacts *data;
/** What the report timers call: `logDataAsync:` with YES. The argument is not read. */
- (void)logData:(nullable NSTimer *)sender;
/** Makes one message and, if its advertising identifier may be sent, hands it to the logger. */
- (void)logDataAsync:(BOOL)async;
@end

/** Has whoever includes this link what it declares, an archive's category above included. */
FOUNDATION_EXPORT __attribute__((visibility("default"))) const char kxPublisherClasses;
static const char *const kxPublisherClassesAreLinked __attribute__((used)) = &kxPublisherClasses;

NS_ASSUME_NONNULL_END

#pragma clang diagnostic pop

#undef KX_NEVER_ASYNC
#undef KX_OPEN_CLASS
#undef KX_CLASS
