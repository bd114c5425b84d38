#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "KXPublisher/platform/LocationService.h"
#include "KXPublisher/platform/simulated/SimulatedScheduler.h"

namespace kx {

/// Where the device is, and what the user allows. Delegates are told on the main thread, as iOS does.
class KX_EXPORT SimulatedLocationService : public LocationService {
 public:
  explicit SimulatedLocationService(SimulatedScheduler &scheduler) : scheduler_(scheduler) {}

  bool managerPresent = true;   ///< whether location managers can be made
  bool geocoderPresent = true;  ///< whether geocoders can be made
  bool enabled = true;
  AuthorizationStatus status = AuthorizationStatus::authorizedWhenInUse;
  /// The last position; every manager knows it.
  std::optional<Location> position{};
  /// What a geocoder finds, wherever the device is, and how many seconds that takes.
  std::vector<Placemark> placemarks{};
  double geocodingLatency = 0.2;

  /// What was asked of managers and geocoders; of positions to geocode, the latest 1000.
  int managersMade = 0;
  int startCalls = 0;
  int stopCalls = 0;
  double distanceFilter = 0;         ///< as set last
  std::vector<Location> geocoded{};  ///< every position that was to be geocoded
  /// Whether any manager follows the position.
  bool updating() const;

  /// The user grants or withdraws the authorization; delegates are told.
  void changeAuthorization(AuthorizationStatus newStatus);
  /// Finds places instead of the device's own geocoder; a null pointer for that one.
  std::shared_ptr<Geocoder> ownGeocoder{};

  /// The device is somewhere else: the delegates of managers that follow it are told, unless the way from
  /// where they were told last is shorter than their distance filter.
  void moveTo(const Location &location);
  /// The system pauses updates by itself, and resumes them.
  void pauseUpdates();
  void resumeUpdates();

  std::shared_ptr<LocationManager> makeLocationManager() override;
  bool locationServicesEnabled() override { return enabled; }
  AuthorizationStatus authorizationStatus() override { return status; }
  std::shared_ptr<Geocoder> makeGeocoder() override;

 private:
  class Manager;
  class PlaceFinder;

  template <class Report>
  void tellDelegates(Report report);
  template <class Report>
  void tell(const std::shared_ptr<Manager> &manager, Report report);

  SimulatedScheduler &scheduler_;
  std::vector<std::weak_ptr<Manager>> managers_{};
};

}  // namespace kx
