#pragma once

#include <optional>
#include <string>
#include <vector>

#include "KXPublisher/platform/Bundle.h"
#include "KXPublisher/platform/Device.h"
#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/Platform.h"
#include "platform/linux/facts/LinuxSystemCalls.h"
#include "platform/linux/https/CurlURLSession.h"
#include "tools/fleet/LoadRequests.h"

namespace kx::fleet {

/// A device for that part of the library which makes requests: it keeps them. What the library asks of it
/// besides, it has not got, and says so by `std::logic_error`.
class LoadPlatform : public Platform {
 public:
  LoadPlatform(std::string systemName, std::string bundleIdentifier);

  /// What is to be sent by one call of the library's, and is not kept any longer; absent: nothing is.
  static std::optional<LoadRequest> take();

  const std::shared_ptr<Application> &sharedApplication() override;
  NotificationCenter &defaultNotificationCenter() override;
  const std::shared_ptr<OperationQueue> &mainOperationQueue() override;
  Dispatch &dispatch() override { return dispatch_; }
  RunLoopService &runLoops() override;
  Clock &clock() override { return clock_; }
  Console &console() override;
  URLSessionService &urlSessions() override { return sessions_; }
  NetworkReachability &networkReachability() override;
  InterfaceList &interfaceList() override;
  DeviceService &devices() override { return devices_; }
  SystemName &systemName() override { return name_; }
  WebViewService &webViews() override;
  AdvertisingService &advertising() override;
  Locale &locale() override;
  BundleService &bundles() override { return bundles_; }
  ProcessInfo &processInfo() override { return process_; }
  TelephonyService &telephony() override;
  LocationService &location() override;

 private:
  /// What the library would do by itself, and not when it is called, is not done.
  class NoDispatch : public Dispatch, public DispatchQueue {
   public:
    void async(WorkItem) override {}
    void sync(WorkItem) override {}
    DispatchQueue &globalQueue(DispatchQueuePriority) override { return *this; }
    DispatchQueue &mainQueue() override { return *this; }
    bool isMainThread() override { return true; }
  };
  class KeptDevice : public DeviceService {
   public:
    explicit KeptDevice(std::string systemName);
    std::shared_ptr<Device> currentDevice() override { return device_; }

   private:
    std::shared_ptr<Device> device_;
  };
  class KeptBundle : public BundleService {
   public:
    explicit KeptBundle(std::string identifier);
    std::shared_ptr<Bundle> mainBundle() override { return bundle_; }
    std::shared_ptr<Bundle> bundleWithIdentifier(const std::optional<std::string> &) override {
      return nullptr;
    }

   private:
    std::shared_ptr<Bundle> bundle_;
  };
  class KeepingSessions : public URLSessionService {
   public:
    explicit KeepingSessions(Dispatch &dispatch) : urls_(dispatch, CurlSettings()) {}
    std::optional<URL> URLWithString(const std::string &text) override { return urls_.URLWithString(text); }
    std::shared_ptr<URLSession> sessionWithDefaultConfiguration() override;

   private:
    CurlURLSessionService urls_;
  };

  NoDispatch dispatch_;
  LinuxClock clock_;
  LinuxSystemName name_;
  LinuxProcessInfo process_;
  KeptDevice devices_;
  KeptBundle bundles_;
  KeepingSessions sessions_{dispatch_};
};

}  // namespace kx::fleet
