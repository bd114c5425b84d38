#pragma once

#include <memory>

#include "KXPublisher/platform/Platform.h"
#include "platform/apple/AppleAdvertising.h"
#include "platform/apple/AppleApplication.h"
#include "platform/apple/AppleBundle.h"
#include "platform/apple/AppleConsole.h"
#include "platform/apple/AppleDevice.h"
#include "platform/apple/AppleDispatch.h"
#include "platform/apple/AppleLocale.h"
#include "platform/apple/AppleLocation.h"
#include "platform/apple/AppleNotificationCenter.h"
#include "platform/apple/AppleOperationQueue.h"
#include "platform/apple/AppleProcessInfo.h"
#include "platform/apple/AppleReachability.h"
#include "platform/apple/AppleRunLoop.h"
#include "platform/apple/AppleSystemCalls.h"
#include "platform/apple/AppleTelephony.h"
#include "platform/apple/AppleURLSession.h"
#include "platform/apple/AppleWebView.h"

namespace kx {

/// iOS: UIKit, CoreLocation and the other frameworks. Making it asks the system for the objects that stand
/// for the device and the main run loop, and for nothing else.
class ApplePlatform : public Platform {
 public:
  ApplePlatform();
  ~ApplePlatform() override;

  const std::shared_ptr<Application> &sharedApplication() override { return sharedApplication_; }
  NotificationCenter &defaultNotificationCenter() override { return notificationCenter_; }
  const std::shared_ptr<OperationQueue> &mainOperationQueue() override { return mainOperationQueue_; }
  Dispatch &dispatch() override { return dispatch_; }
  RunLoopService &runLoops() override { return runLoops_; }
  Clock &clock() override { return clock_; }
  Console &console() override { return console_; }
  URLSessionService &urlSessions() override { return urlSessions_; }
  NetworkReachability &networkReachability() override { return reachability_; }
  InterfaceList &interfaceList() override { return interfaces_; }
  DeviceService &devices() override { return devices_; }
  SystemName &systemName() override { return systemName_; }
  WebViewService &webViews() override { return webViews_; }
  AdvertisingService &advertising() override { return advertising_; }
  Locale &locale() override { return locale_; }
  BundleService &bundles() override { return bundles_; }
  ProcessInfo &processInfo() override { return processInfo_; }
  TelephonyService &telephony() override { return telephony_; }
  LocationService &location() override { return location_; }

 private:
  const std::shared_ptr<Application> sharedApplication_;
  const std::shared_ptr<OperationQueue> mainOperationQueue_;
  AppleNotificationCenter notificationCenter_;
  AppleDispatch dispatch_;
  AppleRunLoopService runLoops_;
  AppleClock clock_;
  AppleConsole console_;
  AppleURLSessionService urlSessions_;
  AppleReachability reachability_;
  AppleInterfaceList interfaces_;
  AppleDeviceService devices_;
  AppleSystemName systemName_;
  AppleWebViewService webViews_;
  AppleAdvertisingService advertising_;
  AppleLocale locale_;
  AppleBundleService bundles_;
  AppleProcessInfo processInfo_;
  AppleTelephonyService telephony_;
  AppleLocationService location_;
};

}  // namespace kx
