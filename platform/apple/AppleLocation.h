#pragma once

#include "KXPublisher/platform/LocationService.h"

namespace kx {

/// CoreLocation. A CLLocationManager reports on the thread that made it, which has to run a run loop: the
/// main thread, when the host calls the library from there.
class KX_EXPORT AppleLocationService : public LocationService {
 public:
  std::shared_ptr<LocationManager> makeLocationManager() override;
  bool locationServicesEnabled() override;
  AuthorizationStatus authorizationStatus() override;
  std::shared_ptr<Geocoder> makeGeocoder() override;
};

}  // namespace kx
