#include "tools/fleet/LoadPlatform.h"

#include <memory>
#include <stdexcept>
#include <utility>

namespace kx::fleet {

namespace {

/// The one that the library has handed over last.
std::optional<LoadRequest> &kept() {
  static std::optional<LoadRequest> request;
  return request;
}

[[noreturn]] void hasNone() {
  throw std::logic_error("the library asks a device for more than it needs for a request");
}

class KeepingTask : public URLSessionUploadTask {
 public:
  explicit KeepingTask(LoadRequest request) : request_(std::move(request)) {}
  void resume() override { kept() = std::move(request_); }

 private:
  LoadRequest request_;
};

class KeepingSession : public URLSession {
 public:
  std::shared_ptr<URLSessionUploadTask> uploadTaskWithRequest(const URLRequest &request,
                                                              std::optional<Data> fromData,
                                                              CompletionHandler) override {
    return std::make_shared<KeepingTask>(LoadRequest{request, std::move(fromData)});
  }
  void finishTasksAndInvalidate() override {}
};

class NamedDevice : public Device {
 public:
  explicit NamedDevice(std::string systemName) : systemName_(std::move(systemName)) {}
  std::optional<std::string> model() override { hasNone(); }
  std::optional<std::string> systemName() override { return systemName_; }
  std::optional<std::string> systemVersion() override { hasNone(); }
  long userInterfaceIdiom() override { hasNone(); }

 private:
  const std::string systemName_;
};

class NamedBundle : public Bundle {
 public:
  explicit NamedBundle(std::string identifier) : identifier_(std::move(identifier)) {}
  std::optional<std::string> bundleIdentifier() override { return identifier_; }
  std::optional<Value> objectForInfoDictionaryKey(const std::string &) override { hasNone(); }

 private:
  const std::string identifier_;
};

}  // namespace

LoadPlatform::KeptDevice::KeptDevice(std::string systemName)
    : device_(std::make_shared<NamedDevice>(std::move(systemName))) {}

LoadPlatform::KeptBundle::KeptBundle(std::string identifier)
    : bundle_(std::make_shared<NamedBundle>(std::move(identifier))) {}

std::shared_ptr<URLSession> LoadPlatform::KeepingSessions::sessionWithDefaultConfiguration() {
  return std::make_shared<KeepingSession>();
}

LoadPlatform::LoadPlatform(std::string systemName, std::string bundleIdentifier)
    : devices_(std::move(systemName)), bundles_(std::move(bundleIdentifier)) {}

std::optional<LoadRequest> LoadPlatform::take() {
  return std::exchange(kept(), std::nullopt);
}

const std::shared_ptr<Application> &LoadPlatform::sharedApplication() {
  hasNone();
}
NotificationCenter &LoadPlatform::defaultNotificationCenter() {
  hasNone();
}
const std::shared_ptr<OperationQueue> &LoadPlatform::mainOperationQueue() {
  hasNone();
}
RunLoopService &LoadPlatform::runLoops() {
  hasNone();
}
Console &LoadPlatform::console() {
  hasNone();
}
NetworkReachability &LoadPlatform::networkReachability() {
  hasNone();
}
InterfaceList &LoadPlatform::interfaceList() {
  hasNone();
}
WebViewService &LoadPlatform::webViews() {
  hasNone();
}
AdvertisingService &LoadPlatform::advertising() {
  hasNone();
}
Locale &LoadPlatform::locale() {
  hasNone();
}
TelephonyService &LoadPlatform::telephony() {
  hasNone();
}
LocationService &LoadPlatform::location() {
  hasNone();
}

}  // namespace kx::fleet
