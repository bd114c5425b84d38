#pragma once

#include <memory>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

class AdvertisingService;
class Application;
class BundleService;
class Clock;
class Console;
class DeviceService;
class Dispatch;
class InterfaceList;
class Locale;
class LocationService;
class NetworkReachability;
class NotificationCenter;
class OperationQueue;
class ProcessInfo;
class RunLoopService;
class SystemName;
class TelephonyService;
class URLSessionService;
class WebViewService;

/// The device that the library runs on: everything that it asks of the world outside, one small interface a
/// service. A process has one platform, which lives as long as the process; it may be used from any thread,
/// and so may every service unless its own description says otherwise.
class KX_EXPORT Platform {
 public:
  virtual ~Platform() = default;

  /// The process's platform: the one that was installed, otherwise the one that is linked in, made at the
  /// first call.
  static Platform &current();

  /// The same, if there is one yet; otherwise a null pointer, and none is made.
  static Platform *currentIfMade();

  /// Makes `platform` the process's platform, for tests and for hosts that bring a device of their own. To be
  /// called once and before anything else of the library; false, without any effect, when it comes too late.
  static bool install(std::unique_ptr<Platform> platform);

  virtual const std::shared_ptr<Application> &sharedApplication() = 0;
  virtual NotificationCenter &defaultNotificationCenter() = 0;
  virtual const std::shared_ptr<OperationQueue> &mainOperationQueue() = 0;
  virtual Dispatch &dispatch() = 0;
  virtual RunLoopService &runLoops() = 0;
  virtual Clock &clock() = 0;
  virtual Console &console() = 0;

  virtual URLSessionService &urlSessions() = 0;
  virtual NetworkReachability &networkReachability() = 0;
  virtual InterfaceList &interfaceList() = 0;

  virtual DeviceService &devices() = 0;
  virtual SystemName &systemName() = 0;
  virtual WebViewService &webViews() = 0;
  virtual AdvertisingService &advertising() = 0;
  virtual Locale &locale() = 0;
  virtual BundleService &bundles() = 0;
  virtual ProcessInfo &processInfo() = 0;
  virtual TelephonyService &telephony() = 0;
  virtual LocationService &location() = 0;

  /// Whether the host gave this platform options when it was too late for them. False where hosts give none.
  virtual bool hostOptionsCameTooLate() { return false; }
};

/// The platform that is linked in: each device's own folder defines this once.
std::unique_ptr<Platform> makeLinkedPlatform();

}  // namespace kx
