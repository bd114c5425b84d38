#include "KXPublisher/platform/simulated/SimulatedScope.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/foundation/SingleInstance.h"

namespace kx {

namespace {

/// What the process has for a platform, once and for all: whichever device there is just now.
class DeviceOfTheScope : public Platform {
 public:
  const std::shared_ptr<Application> &sharedApplication() override { return device().sharedApplication(); }
  const std::shared_ptr<OperationQueue> &mainOperationQueue() override {
    return device().mainOperationQueue();
  }
  NotificationCenter &defaultNotificationCenter() override { return device().defaultNotificationCenter(); }
  Dispatch &dispatch() override { return device().dispatch(); }
  RunLoopService &runLoops() override { return device().runLoops(); }
  Clock &clock() override { return device().clock(); }
  Console &console() override { return device().console(); }
  URLSessionService &urlSessions() override { return device().urlSessions(); }
  NetworkReachability &networkReachability() override { return device().networkReachability(); }
  InterfaceList &interfaceList() override { return device().interfaceList(); }
  DeviceService &devices() override { return device().devices(); }
  SystemName &systemName() override { return device().systemName(); }
  WebViewService &webViews() override { return device().webViews(); }
  AdvertisingService &advertising() override { return device().advertising(); }
  Locale &locale() override { return device().locale(); }
  BundleService &bundles() override { return device().bundles(); }
  ProcessInfo &processInfo() override { return device().processInfo(); }
  TelephonyService &telephony() override { return device().telephony(); }
  LocationService &location() override { return device().location(); }
  bool hostOptionsCameTooLate() override { return device().hostOptionsCameTooLate(); }

  std::unique_ptr<SimulatedPlatform> current;

 private:
  SimulatedPlatform &device() {
    if (current == nullptr) throw std::logic_error("the simulated device has been taken away");
    return *current;
  }
};

DeviceOfTheScope *processPlace = nullptr;

DeviceOfTheScope &forTheProcess() {
  if (processPlace != nullptr) return *processPlace;
  auto platform = std::make_unique<DeviceOfTheScope>();
  DeviceOfTheScope *const made = platform.get();
  if (!Platform::install(std::move(platform))) throw std::logic_error("the process has a platform already");
  return *(processPlace = made);
}

SimulatedPlatform &newDevice(std::uint64_t seed) {
  DeviceOfTheScope &place = forTheProcess();
  if (place.current != nullptr) throw std::logic_error("another simulated device has not ended");
#ifndef KX_SIMULATED
  static bool used = false;
  if (std::exchange(used, true)) {
    throw std::logic_error(
        "this library was not compiled for the simulated device, and keeps its single instances");
  }
#endif
  place.current = std::make_unique<SimulatedPlatform>(seed);
  return *place.current;
}

/// Which of the library's single instances somebody else still holds.
std::string releaseSingleInstances() {
#ifdef KX_SIMULATED
  return SingleInstanceSlot::releaseAll();
#else
  return {};
#endif
}

}  // namespace

SimulatedScope::SimulatedScope(std::uint64_t seed) : device(newDevice(seed)) {}

SimulatedScope::~SimulatedScope() {
  end();
}

void SimulatedScope::end() {
  if (std::exchange(ended_, true)) return;
  // First all that holds objects of the library, and then these, while there is still a device for their
  // ends.
  device.switchOff();
  const std::string kept = releaseSingleInstances();
  auto last = std::move(processPlace->current);
  if (kept.empty()) return;
  static auto &leftToThem = *new std::vector<std::unique_ptr<SimulatedPlatform>>;
  leftToThem.push_back(std::move(last));
  throw std::logic_error("after its simulated device, the test still holds single instances of the library:" +
                         kept);
}

}  // namespace kx
