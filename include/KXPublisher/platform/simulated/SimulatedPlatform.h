#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

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
///     kx::SimulatedScope scope;
///     kx::SimulatedPlatform &device = scope.device;
///     kx::KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
///     device.advance(600);  // seconds, in no time
///     EXPECT_EQ(device.service.messages().size(), 2u);
///
/// Every service of the device is a public member: its facts can be set, and what was asked of it can be
/// read. `replaced` takes services of the test's own instead.
class KX_EXPORT SimulatedPlatform : public Platform {
 public:
  /// Services of the test's own, each in place of the device's; a null pointer for that one.
  struct Replacements {
    std::shared_ptr<Application> application;
    std::shared_ptr<NotificationCenter> notificationCenter;
    std::shared_ptr<OperationQueue> mainOperationQueue;
    std::shared_ptr<Dispatch> dispatch;
    std::shared_ptr<RunLoopService> runLoops;
    std::shared_ptr<Clock> clock;
    std::shared_ptr<Console> console;
    std::shared_ptr<URLSessionService> urlSessions;
    std::shared_ptr<NetworkReachability> networkReachability;
    std::shared_ptr<InterfaceList> interfaceList;
    std::shared_ptr<DeviceService> devices;
    std::shared_ptr<SystemName> systemName;
    std::shared_ptr<WebViewService> webViews;
    std::shared_ptr<AdvertisingService> advertising;
    std::shared_ptr<Locale> locale;
    std::shared_ptr<BundleService> bundles;
    std::shared_ptr<ProcessInfo> processInfo;
    std::shared_ptr<TelephonyService> telephony;
    std::shared_ptr<LocationService> location;
  };
  /// What there is on the device at a moment. When all is quiet, nothing of it grows from report to report.
  struct Counts {
    std::size_t readyTasks;       ///< that have not begun
    std::size_t begunTasks;       ///< that have begun, and wait or were overtaken
    std::size_t laterTasks;       ///< that become ready by themselves: timers, answers
    std::size_t timers;           ///< installed and valid
    std::size_t registrations;    ///< with the notification centre
    std::size_t sessions;         ///< URL sessions that somebody holds
    std::size_t requests;         ///< that wait for an answer
    std::size_t backgroundTasks;  ///< that have not ended
    std::size_t telephonyObjects;
  };

  /// A device whose ready tasks run in the order that `seed` chooses; see `SimulatedScheduler`.
  explicit SimulatedPlatform(std::uint64_t seed = 0);
  ~SimulatedPlatform() override;

  /// Makes a simulated device the process's platform, for as long as the process lives. Throws
  /// `std::logic_error` when the process has one already. `SimulatedScope` has many, one after the other.
  static SimulatedPlatform &install(std::uint64_t seed = 0);
  /// The device that was made first of those that exist; a null pointer when there is none.
  static SimulatedPlatform *made();
  /// Has this called with the next device that is made, once.
  static void whenNextIsMade(std::function<void(SimulatedPlatform &)> prepare);

  /// Lets that many seconds pass.
  void advance(double seconds) { scheduler.advance(seconds); }
  /// Runs what is ready now.
  void runReadyTasks() { scheduler.runReadyTasks(); }
  /// Runs one ready task or a piece of it; false when none is ready.
  bool step() { return scheduler.step(); }
  /// Lets time pass until no task, request or geocoding is under way; timers do not count.
  void runUntilIdle() { scheduler.runUntilIdle(); }
  /// Seconds until something happens by itself; absent when nothing ever will.
  std::optional<double> nextDue() const { return scheduler.nextDue(); }

  /// The device sleeps that long: the wall clock goes on, and nothing else. Connections do not survive it.
  void sleep(double seconds);
  /// The system suspends the process: time passes, and nothing of it runs until `resume`.
  void suspend() { scheduler.setSuspended(true); }
  void resume() { scheduler.setSuspended(false); }

  /// The device's last moment: what is ready runs to its end, and everything lets go of what it holds.
  /// Nothing happens any more then.
  void switchOff();

  Counts counts();
  /// What has happened, a line each, once `scheduler.trace.recording` is set.
  std::string trace() const { return scheduler.trace.text(); }

  /// Whether the library has used the device: too late for what its host says beforehand.
  bool wasUsed() const { return used_; }

  SimulatedScheduler scheduler;
  SimulatedClock clockService{scheduler};
  SimulatedConsole consoleService{&scheduler};
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
  Replacements replaced{};
  /// What `hostOptionsCameTooLate` answers.
  bool optionsCameTooLate = false;

  const std::shared_ptr<Application> &sharedApplication() override;
  NotificationCenter &defaultNotificationCenter() override;
  const std::shared_ptr<OperationQueue> &mainOperationQueue() override;
  Dispatch &dispatch() override;
  RunLoopService &runLoops() override;
  Clock &clock() override;
  Console &console() override;
  URLSessionService &urlSessions() override;
  NetworkReachability &networkReachability() override;
  InterfaceList &interfaceList() override;
  DeviceService &devices() override;
  SystemName &systemName() override;
  WebViewService &webViews() override;
  AdvertisingService &advertising() override;
  Locale &locale() override;
  BundleService &bundles() override;
  ProcessInfo &processInfo() override;
  TelephonyService &telephony() override;
  LocationService &location() override;
  bool hostOptionsCameTooLate() override { return optionsCameTooLate; }

 private:
  template <class Service>
  Service &crossed(const char *name, const std::shared_ptr<Service> &own, Service &ofDevice);
  void cross(const char *name);

  const std::shared_ptr<Application> sharedApplication_;
  bool used_ = false;
};

}  // namespace kx
