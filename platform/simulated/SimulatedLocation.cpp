#include "KXPublisher/platform/simulated/SimulatedLocation.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kx {

namespace {

constexpr std::size_t mostGeocoded = 1000;

double metresBetween(const LocationCoordinate &here, const LocationCoordinate &there) {
  constexpr double radian = 0.017453292519943295;  // of one degree
  constexpr double diameter = 2 * 6'371'000.0;
  const double northwards = std::sin((there.latitude - here.latitude) * radian / 2);
  const double eastwards = std::sin((there.longitude - here.longitude) * radian / 2);
  const double square = northwards * northwards + std::cos(here.latitude * radian) *
                                                      std::cos(there.latitude * radian) * eastwards *
                                                      eastwards;
  return diameter * std::asin(std::min(1.0, std::sqrt(square)));
}

}  // namespace

class SimulatedLocationService::Manager : public LocationManager {
 public:
  explicit Manager(SimulatedLocationService &service) : service_(service) {}

  void setDelegate(const std::weak_ptr<LocationManagerDelegate> &newDelegate) override {
    delegate = newDelegate;
  }
  void setDistanceFilter(double newFilter) override { service_.distanceFilter = filter = newFilter; }
  void startUpdatingLocation() override {
    service_.scheduler_.yield();
    ++service_.startCalls;
    updating = true;
  }
  void stopUpdatingLocation() override {
    service_.scheduler_.yield();
    ++service_.stopCalls;
    updating = false;
    told = std::nullopt;
  }
  std::optional<Location> location() override { return service_.position; }

  /// Whether the delegate wants to know of that position.
  bool follows(const Location &location) const {
    return updating && (!told || metresBetween(*told, location.coordinate) >= filter);
  }

  std::weak_ptr<LocationManagerDelegate> delegate;
  double filter = 0;  ///< metres
  bool updating = false;
  std::optional<LocationCoordinate> told;  ///< the position that the delegate knows

 private:
  SimulatedLocationService &service_;
};

class SimulatedLocationService::PlaceFinder : public Geocoder {
 public:
  explicit PlaceFinder(SimulatedLocationService &service) : service_(service) {}

  void reverseGeocodeLocation(const Location &location, CompletionHandler completionHandler) override {
    service_.scheduler_.yield();
    if (service_.geocoded.size() >= mostGeocoded) service_.geocoded.erase(service_.geocoded.begin());
    service_.geocoded.push_back(location);
    service_.scheduler_.after(
        service_.geocodingLatency, service_.scheduler_.mainQueue(),
        [found = service_.placemarks, completionHandler = std::move(completionHandler)] {
          completionHandler(found);
        });
  }

 private:
  SimulatedLocationService &service_;
};

std::shared_ptr<LocationManager> SimulatedLocationService::makeLocationManager() {
  if (!managerPresent) return nullptr;
  ++managersMade;
  managers_.erase(
      std::remove_if(managers_.begin(), managers_.end(), [](const auto &weak) { return weak.expired(); }),
      managers_.end());
  const auto manager = std::make_shared<Manager>(*this);
  managers_.push_back(manager);
  return manager;
}

std::shared_ptr<Geocoder> SimulatedLocationService::makeGeocoder() {
  if (ownGeocoder != nullptr) return ownGeocoder;
  return geocoderPresent ? std::make_shared<PlaceFinder>(*this) : nullptr;
}

template <class Report>
void SimulatedLocationService::tellDelegates(Report report) {
  for (const auto &weak : managers_) {
    const auto manager = weak.lock();
    if (manager != nullptr) tell(manager, report);
  }
}

template <class Report>
void SimulatedLocationService::tell(const std::shared_ptr<Manager> &manager, Report report) {
  scheduler_.mainQueue().async([manager, report] {
    if (const auto delegate = manager->delegate.lock()) report(*delegate, *manager);
  });
}

bool SimulatedLocationService::updating() const {
  return std::any_of(managers_.begin(), managers_.end(), [](const auto &weak) {
    const auto manager = weak.lock();
    return manager != nullptr && manager->updating;
  });
}

void SimulatedLocationService::changeAuthorization(AuthorizationStatus newStatus) {
  status = newStatus;
  tellDelegates([newStatus](LocationManagerDelegate &delegate, LocationManager &manager) {
    delegate.locationManager(manager, newStatus);
  });
}

void SimulatedLocationService::moveTo(const Location &location) {
  position = location;
  for (const auto &weak : managers_) {
    const auto manager = weak.lock();
    if (manager == nullptr || !manager->follows(location)) continue;
    manager->told = location.coordinate;
    tell(manager, [location](LocationManagerDelegate &delegate, LocationManager &receiver) {
      delegate.locationManager(receiver, std::vector<Location>{location});
    });
  }
}

void SimulatedLocationService::pauseUpdates() {
  tellDelegates([](LocationManagerDelegate &delegate, LocationManager &manager) {
    delegate.locationManagerDidPauseLocationUpdates(manager);
  });
}

void SimulatedLocationService::resumeUpdates() {
  tellDelegates([](LocationManagerDelegate &delegate, LocationManager &manager) {
    delegate.locationManagerDidResumeLocationUpdates(manager);
  });
}

}  // namespace kx
