#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "KXPublisher/platform/LocationService.h"
#include "platform/apple/AppleLocationSwitch.h"

@class CLLocationManager;

namespace kx {

class AppleLocationManager;

/// The system's object behind a location manager of this service; nil for a null pointer, and for one of
/// another platform.
CLLocationManager *_Nullable systemManagerOf(const std::shared_ptr<LocationManager> &manager);

/// CoreLocation. A CLLocationManager reports on the thread that made it, which has to run a run loop: the
/// main thread, when the host calls the library from there.
class AppleLocationService : public LocationService {
 public:
  std::shared_ptr<LocationManager> makeLocationManager() override;
  bool locationServicesEnabled() override { return switch_->isOn(); }
  AuthorizationStatus authorizationStatus() override;
  std::shared_ptr<Geocoder> makeGeocoder() override;

 private:
  /// The location managers alive, which report it as a change of the authorization when the switch turns out
  /// to stand otherwise than the main thread was told.
  struct Managers {
    std::mutex mutex;
    std::vector<std::weak_ptr<AppleLocationManager>> all;
  };
  static std::shared_ptr<AppleLocationSwitch> switchFor(const std::shared_ptr<Managers> &managers);

  const std::shared_ptr<Managers> managers_ = std::make_shared<Managers>();
  const std::shared_ptr<AppleLocationSwitch> switch_ = switchFor(managers_);
};

}  // namespace kx
