#pragma once

#include <memory>

#include "KXPublisher/platform/Geocoder.h"
#include "KXPublisher/platform/LocationManager.h"

namespace kx {

/// The device's location services as a whole, and how their objects are made. May be used from any thread.
class KX_EXPORT LocationService {
 public:
  virtual ~LocationService() = default;

  /// A new location manager; a null pointer when the device has none. Returns at once.
  virtual std::shared_ptr<LocationManager> makeLocationManager() = 0;

  /// `locationServicesEnabled` (CLLocationManager): whether the user has location services switched on.
  /// Answers at once with what is known; a change is reported as one of the authorization.
  virtual bool locationServicesEnabled() = 0;

  /// `authorizationStatus` (CLLocationManager): the host's authorization as far as it is known.
  virtual AuthorizationStatus authorizationStatus() = 0;

  /// A new geocoder; a null pointer when the device has none. Returns at once.
  virtual std::shared_ptr<Geocoder> makeGeocoder() = 0;
};

}  // namespace kx
