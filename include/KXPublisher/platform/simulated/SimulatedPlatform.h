#pragma once

#include <cstdint>
#include <memory>

#include "KXPublisher/platform/LocalNotificationCenter.h"
#include "KXPublisher/platform/MainOperationQueue.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/simulated/SimulatedApplication.h"
#include "KXPublisher/platform/simulated/SimulatedCollectionService.h"
#include "KXPublisher/platform/simulated/SimulatedDevice.h"
#include "KXPublisher/platform/simulated/SimulatedLocation.h"
#include "KXPublisher/platform/simulated/SimulatedReachability.h"
#include "KXPublisher/platform/simulated/SimulatedRunLoop.h"
#include "KXPublisher/platform/simulated/SimulatedScheduler.h"
#include "KXPublisher/platform/simulated/SimulatedTelephony.h"

namespace kx {

/// A whole device in memory, on virtual time, driven by a test on one thread:
///
///     kx::SimulatedPlatform &device = kx::SimulatedPlatform::install();
///     kx::KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
///     device.advance(600);  // seconds, in no time
///     EXPECT_EQ(device.service.messages().size(), 2u);
///
/// Every service of the device is a public member: its facts can be set, and what was asked of it can be
/// read.
class KX_EXPORT SimulatedPlatform : public Platform {
 public:
  /// A device whose ready tasks run in the order that `seed` chooses; see `SimulatedScheduler`.
  explicit SimulatedPlatform(std::uint64_t seed = 0);
  ~SimulatedPlatform() override;

  /// Makes a simulated device the process's platform. Throws `std::logic_error` when the process has one
  /// already.
  static SimulatedPlatform &install(std::uint64_t seed = 0);

  /// Lets that many seconds pass.
  void advance(double seconds) { scheduler.advance(seconds); }
  /// Runs what is ready now.
  void runReadyTasks() { scheduler.runReadyTasks(); }

  SimulatedScheduler scheduler;
  SimulatedClock clockService{scheduler};
  SimulatedConsole consoleService;
  SimulatedRunLoopService runLoopService{scheduler};
  const std::shared_ptr<OperationQueue> mainOperations;
  LocalNotificationCenter notificationCenter;
  const std::shared_ptr<SimulatedApplication> application;
  SimulatedCollectionService service;
  SimulatedURLSessionService urlSessionService{scheduler, service};
  SimulatedReachability reachability;
  SimulatedInterfaceList interfaces;
  const std::shared_ptr<SimulatedDevice> device;
  SimulatedSystemName uname;
  SimulatedWebViewService webViewService{scheduler};
  const std::shared_ptr<SimulatedAdvertising> advertisingService;
  SimulatedLocale localeService;
  const std::shared_ptr<SimulatedBundle> bundle;
  SimulatedProcessInfo processInformation;
  SimulatedTelephonyService telephonyService{scheduler};
  SimulatedLocationService locationService{scheduler};

  const std::shared_ptr<Application> &sharedApplication() override { return sharedApplication_; }
  NotificationCenter &defaultNotificationCenter() override { return notificationCenter; }
  const std::shared_ptr<OperationQueue> &mainOperationQueue() override { return mainOperations; }
  Dispatch &dispatch() override { return scheduler; }
  RunLoopService &runLoops() override { return runLoopService; }
  Clock &clock() override { return clockService; }
  Console &console() override { return consoleService; }
  URLSessionService &urlSessions() override { return urlSessionService; }
  NetworkReachability &networkReachability() override { return reachability; }
  InterfaceList &interfaceList() override { return interfaces; }
  DeviceService &devices() override { return *device; }
  SystemName &systemName() override { return uname; }
  WebViewService &webViews() override { return webViewService; }
  AdvertisingService &advertising() override { return *advertisingService; }
  Locale &locale() override { return localeService; }
  BundleService &bundles() override { return *bundle; }
  ProcessInfo &processInfo() override { return processInformation; }
  TelephonyService &telephony() override { return telephonyService; }
  LocationService &location() override { return locationService; }

 private:
  const std::shared_ptr<Application> sharedApplication_;
};

}  // namespace kx
