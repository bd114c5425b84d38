#pragma once

#import <CoreLocation/CoreLocation.h>
#import <CoreTelephony/CTTelephonyNetworkInfo.h>
#import <Foundation/Foundation.h>
#import <SystemConfiguration/SystemConfiguration.h>
#import <UIKit/UIKit.h>

#include <array>
#include <atomic>
#include <optional>
#include <string>
#include <vector>

/// The mode in which UIKit runs the main run loop while the user drags something.
FOUNDATION_EXPORT NSString *const UITrackingRunLoopMode;

/// The iPhone that the stand-ins of the frameworks show to the library. A test sets it up on the main thread
/// before it uses the library, and lets things happen to it later.
namespace kx::standin {

/// UIDevice.
struct Device {
  bool isPresent = true;
  NSString *model = @"iPhone";
  NSString *systemName = @"iOS";
  NSString *systemVersion = @"12.4";
  NSInteger userInterfaceIdiom = 0;
};
Device &device();

/// UIWebView; its views are of that mind.
struct WebEngine {
  bool makesViews = true;
  NSString *userAgent = @"Mozilla/5.0 (iPhone; CPU iPhone OS 12_4 like Mac OS X) AppleWebKit/605.1.15";
};
WebEngine &webEngine();

/// ASIdentifierManager.
struct Advertising {
  bool isPresent = true;
  NSString *identifier = @"6D92078A-8246-4BA4-AE5B-76104861E7DC";
  bool isTrackingEnabled = true;
};
Advertising &advertising();

/// UIApplication.
struct Application {
  UIBackgroundRefreshStatus backgroundRefreshStatus = UIBackgroundRefreshStatusAvailable;
  bool grantsBackgroundTasks = true;
};
Application &application();
void enterBackground();
void enterForeground();

/// The background tasks so far: their names in the order of beginning, and the identifiers of every call that
/// ended one, whether it ran or not. The first task has the identifier `firstBackgroundTask`, and so on.
constexpr UIBackgroundTaskIdentifier firstBackgroundTask = 7;
std::vector<std::string> begunBackgroundTasks();
std::vector<UIBackgroundTaskIdentifier> endedBackgroundTasks();
/// Those that were begun, not ended and not refused.
std::vector<UIBackgroundTaskIdentifier> runningBackgroundTasks();
/// Calls the expiration handler of every running task, as the system does when the time is over.
void expireBackgroundTasks();

/// CTTelephonyNetworkInfo: a subscription, whose service is called that and carries the data, and others,
/// which the named interfaces do not know.
constexpr const char *telephonyService = "0000000100000001";
struct Telephony {
  bool isPresent = true;
  bool hasNamedInterfaces = true;    ///< those of the one subscriber
  bool hasServiceInterfaces = true;  ///< their successors, by service
  bool hasCarrier = true;
  bool hasDataService = true;
  int otherSubscriptions = 0;  ///< all of them with the carrier 001-01 and EDGE
  NSString *mobileCountryCode = @"310";
  NSString *mobileNetworkCode = @"410";
  NSString *radioAccessTechnology = @"CTRadioAccessTechnologyLTE";
};
Telephony &telephony();
/// Another carrier: every telephony object calls its notifiers, on a thread of its own; where there are other
/// subscriptions, with the service of one of these.
void changeCarrier(NSString *mobileCountryCode, NSString *mobileNetworkCode);
/// The telephony objects alive.
int telephonyObjects();

/// CLLocationManager. Its objects call their delegates on the run loop of the thread that made them; what a
/// delegate raises ends the process.
struct LocationServices {
  bool areEnabled = true;
  CLAuthorizationStatus authorizationStatus = kCLAuthorizationStatusAuthorizedWhenInUse;
  CLLocation *location = nil;
  /// Since iOS 14 a manager is asked for the authorization that it has, before it tells its delegate.
  bool knowsItsOwnAuthorization = true;
};
LocationServices &locationServices();
CLLocation *locationAt(double latitude, double longitude, double horizontalAccuracy = 5);
/// They find that position, and report it if they are updating.
void moveTo(CLLocation *location);
/// The last one of several, all of which they report at once.
void moveTo(NSArray<CLLocation *> *locations);
void changeAuthorization(CLAuthorizationStatus status);
void pauseLocationUpdates();
void resumeLocationUpdates();
/// How many of them there are, and how many are updating.
int locationManagers();
int updatingLocationManagers();
/// The latest one.
CLLocationManager *latestLocationManager();
/// The distance filter of the latest one.
double distanceFilter();

/// CLGeocoder.
CLPlacemark *placemark(NSString *country, NSString *area, NSString *locality, NSString *postalCode,
                       NSTimeZone *timeZone);
/// The location of the latest request.
CLLocation *geocodedLocation();
/// Answers the oldest request, on the main thread; false when there is none.
bool answerGeocoding(NSArray<CLPlacemark *> *placemarks, NSError *error = nil);

/// SCNetworkReachability. Read by the library's threads while a test changes it.
struct Reachability {
  std::atomic<bool> makesHandles{true};
  std::atomic<bool> canBeRead{true};
  std::atomic<SCNetworkReachabilityFlags> flags{0x2};
};
Reachability &reachability();
/// New flags: every handle calls its callback on each run loop that it is scheduled on.
void changeReachability(SCNetworkReachabilityFlags flags);
/// On how many run loops handles are scheduled; on how many main ones.
int scheduledRunLoops();
int scheduledMainRunLoops();
/// The address of the latest handle, as it lay in memory.
std::vector<unsigned char> reachabilityAddress();

/// NSURLSession, which goes out to the network by itself.
struct Network {
  std::string certificateAuthorityFile;  ///< PEM; empty: the system's
  /// What every task completes with, without going out, where one of the two is set.
  NSURLResponse *response = nil;
  NSError *error = nil;
};
Network &network();
/// The sessions that have not been told to finish.
int openSessions();

/// NSLocale: the user's languages; nil: those of the machine.
void setPreferredLanguages(NSArray<NSString *> *languages);

/// `getifaddrs`: the list that it gives; absent: the machine's.
struct InterfaceEntry {
  const char *name;
  int family;  ///< AF_UNSPEC: an entry without an address
  std::array<unsigned char, 4> bytesAfterPort{};
};
struct Interfaces {
  std::optional<std::vector<InterfaceEntry>> entries;
  bool canBeRead = true;
};
Interfaces &interfaces();
/// The lists that have not been freed.
int openInterfaceLists();

/// The references to run loops that are still held, beside the system's own: to the main one's, or to those
/// of all other threads.
int heldRunLoops(bool mainOne);

/// The NSTimers that are alive, and those that a run loop may still fire. To be asked on the main thread,
/// where timers may fire meanwhile.
int aliveTimers();
int installedTimers();

/// Dispatch: the priority of the global queue whose task runs on this thread, `notAGlobalQueue` when none
/// does.
constexpr long notAGlobalQueue = -1;
long currentQueuePriority();

}  // namespace kx::standin
