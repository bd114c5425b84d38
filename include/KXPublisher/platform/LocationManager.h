#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

class LocationManager;

/// Whether the host may know where the device is (CLAuthorizationStatus). A system may report other values.
enum class AuthorizationStatus : int {
  notDetermined = 0,
  restricted = 1,
  denied = 2,
  authorizedAlways = 3,
  authorizedWhenInUse = 4,
};

/// A point on the earth in degrees, WGS 84 (CLLocationCoordinate2D).
struct LocationCoordinate {
  double latitude = 0;
  double longitude = 0;
};

/// A position as it was measured (CLLocation).
struct Location {
  LocationCoordinate coordinate;
  double horizontalAccuracy = -1;  ///< metres; negative or not a number: the coordinate is invalid
  double altitude = 0;             ///< metres above sea level
  double verticalAccuracy = -1;    ///< metres; negative: the altitude is invalid
};

/// Who is told what a location manager finds (CLLocationManagerDelegate). Called on a thread of the
/// platform's choosing.
class KX_EXPORT LocationManagerDelegate {
 public:
  virtual ~LocationManagerDelegate() = default;

  /// `locationManager:didChangeAuthorizationStatus:`: the host's authorization, or whether location services
  /// are switched on, has changed or has become known.
  virtual void locationManager(LocationManager &manager,
                               AuthorizationStatus didChangeAuthorizationStatus) = 0;

  /// `locationManager:didUpdateLocations:`: there are new positions, the latest last.
  virtual void locationManager(LocationManager &manager, const std::vector<Location> &didUpdateLocations) = 0;

  /// `locationManagerDidPauseLocationUpdates:`: the system has paused updates by itself.
  virtual void locationManagerDidPauseLocationUpdates(LocationManager &manager) = 0;

  /// `locationManagerDidResumeLocationUpdates:`: it has resumed them.
  virtual void locationManagerDidResumeLocationUpdates(LocationManager &manager) = 0;
};

/// A source of positions (CLLocationManager). May be used from any thread, and never waits for a position.
class KX_EXPORT LocationManager : public Object {
 public:
  /// `setDelegate:`: who is told; not kept alive.
  virtual void setDelegate(const std::weak_ptr<LocationManagerDelegate> &delegate) = 0;

  /// `setDistanceFilter:`: a new position is reported when it lies at least that many metres from the last
  /// one.
  virtual void setDistanceFilter(double distanceFilter) = 0;

  /// `startUpdatingLocation`: positions are to be found and reported from now on.
  virtual void startUpdatingLocation() = 0;

  /// `stopUpdatingLocation`: they are no longer needed. The last position stays known.
  virtual void stopUpdatingLocation() = 0;

  /// `location`: the last position that was found, however old; absent when there is none.
  virtual std::optional<Location> location() = 0;
};

}  // namespace kx
