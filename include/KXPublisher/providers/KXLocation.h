#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "KXPublisher/platform/Geocoder.h"
#include "KXPublisher/platform/LocationManager.h"
#include "KXPublisher/platform/foundation/AtomicProperty.h"
#include "KXPublisher/providers/KXData.h"

namespace kx {

namespace constants {
inline constexpr const char *dataKeyLocationLatitude = "lat";
inline constexpr const char *dataKeyLocationLongitude = "lon";
inline constexpr const char *dataKeyLocationHorizontalAccuracy = "horizontalAccuracy";
inline constexpr const char *dataKeyLocationAltitude = "altitude";
inline constexpr const char *dataKeyLocationVerticalAccuracy = "verticalAccuracy";
inline constexpr const char *dataKeyLocationCountry = "country";
inline constexpr const char *dataKeyLocationState = "state";
inline constexpr const char *dataKeyLocationCity = "city";
inline constexpr const char *dataKeyLocationZip = "zip";
inline constexpr const char *dataKeyLocationTimezone = "tzOffset";
}  // namespace constants

/// Reports where the device is: first the position, and once it has been geocoded, position and place. It
/// never asks the user for permission; it follows the authorization that exists. Recomputed on new positions,
/// changes of authorization, resumed updates and each return to the foreground; updates stop in the
/// background.
///
/// Every computation with a valid position geocodes it, and the place that arrives last wins, even when it
/// belongs to an older position.
class KX_EXPORT KXLocation : public KXData, public LocationManagerDelegate {
 public:
  /// `dealloc`: stops location updates.
  ~KXLocation() override;

  /// `sharedInstance`
  static std::shared_ptr<KXLocation> sharedInstance();

  /// `needsMonitoring`: false.
  bool needsMonitoring() const override { return false; }
  /// `hasPermissions`: whether location services are switched on and the host is authorized.
  bool hasPermissions() override;
  /// `computeData`: the position, at once; its geocoding is started here and installs position and place
  /// later.
  std::shared_ptr<MutableDictionary> computeData() override;

  // The location manager's reports. Their arguments are not read: each asks afresh.

  /// `locationManager:didChangeAuthorizationStatus:`
  void locationManager(LocationManager &manager, AuthorizationStatus didChangeAuthorizationStatus) override;
  /// `locationManager:didUpdateLocations:`
  void locationManager(LocationManager &manager, const std::vector<Location> &didUpdateLocations) override;
  /// `locationManagerDidPauseLocationUpdates:`
  void locationManagerDidPauseLocationUpdates(LocationManager &manager) override;
  /// `locationManagerDidResumeLocationUpdates:`
  void locationManagerDidResumeLocationUpdates(LocationManager &manager) override;

  /// `locationManager`: made at creation, distance filter 10 m; a null pointer when the device has none.
  std::shared_ptr<LocationManager> locationManager() const { return locationManager_.get(); }
  /// `setLocationManager:`
  void setLocationManager(std::shared_ptr<LocationManager> locationManager) {
    locationManager_.set(std::move(locationManager));
  }
  /// `geocoder`: made at creation; a null pointer when the device has none.
  std::shared_ptr<Geocoder> geocoder() const { return geocoder_.get(); }
  /// `setGeocoder:`
  void setGeocoder(std::shared_ptr<Geocoder> geocoder) { geocoder_.set(std::move(geocoder)); }

 protected:
  KXLocation() = default;
  void instanceDidStartInit() override;

 private:
  friend class KXData;

  /// The location manager, if there is one and the host is permitted to use it.
  KX_HIDDEN std::shared_ptr<LocationManager> permittedLocationManager();

  AtomicProperty<std::shared_ptr<LocationManager>> locationManager_;
  AtomicProperty<std::shared_ptr<Geocoder>> geocoder_;
};

}  // namespace kx
