#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/LocalNotificationCenter.h"
#include "KXPublisher/platform/MainOperationQueue.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/linux/LinuxHost.h"
#include "platform/linux/bus/SessionBus.h"
#include "platform/linux/bus/SystemBus.h"
#include "platform/linux/console/LinuxConsole.h"
#include "platform/linux/facts/FlatpakSandbox.h"
#include "platform/linux/facts/LinuxAdvertising.h"
#include "platform/linux/facts/LinuxBundle.h"
#include "platform/linux/facts/LinuxDevice.h"
#include "platform/linux/facts/LinuxLocale.h"
#include "platform/linux/facts/LinuxSystemCalls.h"
#include "platform/linux/facts/LinuxWebView.h"
#include "platform/linux/lifecycle/LinuxApplication.h"
#include "platform/linux/location/LinuxLocationService.h"
#include "platform/linux/network/LinuxInterfaceList.h"
#include "platform/linux/network/LinuxReachability.h"
#include "platform/linux/telephony/LinuxTelephony.h"
#include "platform/linux/threads/LinuxDispatch.h"
#include "platform/linux/threads/LinuxRunLoop.h"

namespace kx {

/// The Linux device: GLib's main loop, the kernel, the system's files, and what the host tells.
///
/// Making it happens on the host's thread, inside its first call: it takes a few microseconds, reads no file
/// but the one that a Flatpak sandbox has, starts no thread and waits for no bus. What can only be read there
/// in safety, the environment and the GApplication's identifier, is read then.
class LinuxPlatform : public Platform {
 public:
  explicit LinuxPlatform(const LinuxHostOptions &options);
  ~LinuxPlatform() override;

  const std::shared_ptr<Application> &sharedApplication() override { return sharedApplication_; }
  NotificationCenter &defaultNotificationCenter() override { return notificationCenter_; }
  const std::shared_ptr<OperationQueue> &mainOperationQueue() override { return mainOperationQueue_; }
  Dispatch &dispatch() override { return dispatch_; }
  RunLoopService &runLoops() override { return runLoops_; }
  Clock &clock() override { return clock_; }
  Console &console() override { return console_; }
  URLSessionService &urlSessions() override { return *urlSessions_; }
  NetworkReachability &networkReachability() override { return reachability_; }
  InterfaceList &interfaceList() override { return interfaces_; }
  DeviceService &devices() override { return *device_; }
  SystemName &systemName() override { return systemName_; }
  WebViewService &webViews() override { return webViews_; }
  AdvertisingService &advertising() override { return *advertising_; }
  Locale &locale() override { return locale_; }
  BundleService &bundles() override { return *bundle_; }
  ProcessInfo &processInfo() override { return processInfo_; }
  TelephonyService &telephony() override { return telephony_; }
  LocationService &location() override { return location_; }
  bool hostOptionsCameTooLate() override;  // in LinuxHost.cpp, where they arrive

 private:
  LinuxLocationService makeLocation(std::shared_ptr<Geocoder> geocoder) const;

  LinuxRunLoopService runLoops_;
  const std::optional<FlatpakSandbox> sandbox_;  ///< absent outside of one
  const std::optional<std::string> identifier_;  ///< the application's
  const std::shared_ptr<SystemBus> systemBus_;
  const std::shared_ptr<SessionBus> sessionBus_;  ///< null outside of a sandbox
  LinuxDispatch dispatch_;
  const std::shared_ptr<OperationQueue> mainOperationQueue_;
  LocalNotificationCenter notificationCenter_;
  const std::shared_ptr<LinuxApplication> application_;
  const std::shared_ptr<Application> sharedApplication_ = application_;
  LinuxClock clock_;
  LinuxConsole console_;
  const std::unique_ptr<URLSessionService> urlSessions_;
  LinuxReachability reachability_{runLoops_.linuxMainRunLoop(), systemBus_, sessionBus_};
  LinuxInterfaceList interfaces_;
  const std::shared_ptr<LinuxDevice> device_;
  LinuxSystemName systemName_;
  LinuxWebViewService webViews_;
  const std::shared_ptr<LinuxAdvertising> advertising_;
  LinuxLocale locale_;
  const std::shared_ptr<LinuxBundle> bundle_;
  LinuxProcessInfo processInfo_;
  LinuxTelephony telephony_{runLoops_.linuxMainRunLoop(), systemBus_};
  LinuxLocationService location_;
};

}  // namespace kx
