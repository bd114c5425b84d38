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

  /// What was asked of managers and geocoders.
  int managersMade = 0;
  int startCalls = 0;
  int stopCalls = 0;
  double distanceFilter = 0;         ///< as set last
  std::vector<Location> geocoded{};  ///< every position that was to be geocoded
  bool updating() const { return startCalls > 0 && updating_; }

  /// The user grants or withdraws the authorization; delegates are told.
  void changeAuthorization(AuthorizationStatus newStatus);
  /// The device is somewhere else: delegates are told if updates run.
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

  SimulatedScheduler &scheduler_;
  bool updating_ = false;
  std::vector<std::weak_ptr<Manager>> managers_{};
};

}  // namespace kx
