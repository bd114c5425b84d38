#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/platform/AdvertisingIdentifierManager.h"
#include "KXPublisher/platform/Bundle.h"
#include "KXPublisher/platform/Clock.h"
#include "KXPublisher/platform/Console.h"
#include "KXPublisher/platform/Device.h"
#include "KXPublisher/platform/InterfaceList.h"
#include "KXPublisher/platform/Locale.h"
#include "KXPublisher/platform/ProcessInfo.h"
#include "KXPublisher/platform/SystemName.h"
#include "KXPublisher/platform/WebView.h"
#include "KXPublisher/platform/simulated/SimulatedScheduler.h"

// The facts of the simulated device. Each is a public member that a test sets; the services answer from them.
// As it comes, the device is a phone with an advertising identifier.

namespace kx {

/// The wall clock. It runs with the virtual time.
class KX_EXPORT SimulatedClock : public Clock {
 public:
  explicit SimulatedClock(const SimulatedScheduler &scheduler) : scheduler_(scheduler) {}

  /// What the clock showed, in seconds since 1970, when the device was switched on. Changing it sets the
  /// clock.
  double atSwitchOn = 1700000000.0;

  double timeIntervalSince1970() override { return atSwitchOn + scheduler_.uptime(); }

 private:
  const SimulatedScheduler &scheduler_;
};

/// The console log, captured.
class KX_EXPORT SimulatedConsole : public Console {
 public:
  /// Its lines are said in the scheduler's trace, too, where one is given.
  explicit SimulatedConsole(SimulatedScheduler *scheduler = nullptr) : scheduler_(scheduler) {}
  SimulatedConsole(const SimulatedConsole &) = delete;
  SimulatedConsole &operator=(const SimulatedConsole &) = delete;
  ~SimulatedConsole() override = default;

  /// The latest lines, at most this many.
  static constexpr std::size_t mostLines = 10'000;
  std::vector<std::string> lines{};

  void log(const std::string &line) override {
    if (scheduler_ != nullptr) scheduler_->say("prints", line);
    if (lines.size() >= mostLines) lines.erase(lines.begin(), lines.begin() + mostLines / 2);
    lines.push_back(line);
  }

 private:
  SimulatedScheduler *const scheduler_;
};

class KX_EXPORT SimulatedDevice : public Device, public DeviceService {
 public:
  bool present = true;  ///< whether there is a current device at all
  std::optional<std::string> modelText = "iPhone";
  std::optional<std::string> systemNameText = "iOS";
  std::optional<std::string> systemVersionText = "12.4";
  long idiom = 0;

  std::shared_ptr<Device> currentDevice() override { return present ? strong(*this) : nullptr; }
  std::optional<std::string> model() override { return modelText; }
  std::optional<std::string> systemName() override { return systemNameText; }
  std::optional<std::string> systemVersion() override { return systemVersionText; }
  long userInterfaceIdiom() override { return idiom; }
};

class KX_EXPORT SimulatedSystemName : public SystemName {
 public:
  std::optional<std::string> machineText = "iPhone10,4";

  std::optional<std::string> machine() override { return machineText; }
};

class KX_EXPORT SimulatedAdvertising : public AdvertisingIdentifierManager, public AdvertisingService {
 public:
  bool present = true;  ///< whether there is a shared manager at all
  std::optional<std::string> identifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  bool trackingEnabled = true;

  std::shared_ptr<AdvertisingIdentifierManager> sharedManager() override {
    return present ? strong(*this) : nullptr;
  }
  std::optional<std::string> advertisingIdentifier() override { return identifier; }
  bool isAdvertisingTrackingEnabled() override { return trackingEnabled; }
};

/// The web engine. Its views refuse to be used off the main thread.
class KX_EXPORT SimulatedWebViewService : public WebViewService {
 public:
  explicit SimulatedWebViewService(Dispatch &dispatch) : dispatch_(dispatch) {}

  bool present = true;  ///< whether web views can be made
  std::optional<std::string> userAgent = "Mozilla/5.0 (iPhone; CPU iPhone OS 12_4 like Mac OS X)";
  int made = 0;   ///< how many views were made
  int alive = 0;  ///< how many of them exist now

  std::unique_ptr<WebView> makeWebView() override;

 private:
  class View;

  void requireMainThread() const;

  Dispatch &dispatch_;
};

class KX_EXPORT SimulatedLocale : public Locale {
 public:
  std::vector<std::string> languages = {"en-GB", "de-DE"};

  std::vector<std::string> preferredLanguages() override { return languages; }
};

/// The host application as it is installed.
class KX_EXPORT SimulatedBundle : public Bundle, public BundleService {
 public:
  bool present = true;  ///< whether the process has a main bundle
  std::optional<std::string> identifier = "com.example.Host";
  /// The information list.
  std::map<std::string, Value> information = {{"CFBundleExecutable", "Host"}};

  std::shared_ptr<Bundle> mainBundle() override { return present ? strong(*this) : nullptr; }
  std::shared_ptr<Bundle> bundleWithIdentifier(const std::optional<std::string> &requested) override {
    return present && requested && requested == identifier ? strong(*this) : nullptr;
  }
  std::optional<std::string> bundleIdentifier() override { return identifier; }
  std::optional<Value> objectForInfoDictionaryKey(const std::string &key) override;
};

class KX_EXPORT SimulatedProcessInfo : public ProcessInfo {
 public:
  std::string globallyUniqueString() override { return "simulated-" + std::to_string(++given_); }

 private:
  int given_ = 0;
};

class KX_EXPORT SimulatedInterfaceList : public InterfaceList {
 public:
  std::vector<InterfaceAddress> entries = {{"lo0", AddressFamily::inet, {127, 0, 0, 1}},
                                           {"en0", AddressFamily::inet, {192, 168, 1, 20}}};

  std::vector<InterfaceAddress> getifaddrs() override { return entries; }
};

}  // namespace kx
