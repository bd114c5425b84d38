#include "KXPublisher/platform/simulated/SimulatedLocation.h"

#include <utility>

namespace kx {

class SimulatedLocationService::Manager : public LocationManager {
 public:
  explicit Manager(SimulatedLocationService &service) : service_(service) {}

  void setDelegate(const std::weak_ptr<LocationManagerDelegate> &newDelegate) override {
    delegate = newDelegate;
  }
  void setDistanceFilter(double filter) override { service_.distanceFilter = filter; }
  void startUpdatingLocation() override {
    ++service_.startCalls;
    service_.updating_ = true;
  }
  void stopUpdatingLocation() override {
    ++service_.stopCalls;
    service_.updating_ = false;
  }
  std::optional<Location> location() override { return service_.position; }

  std::weak_ptr<LocationManagerDelegate> delegate;

 private:
  SimulatedLocationService &service_;
};

class SimulatedLocationService::PlaceFinder : public Geocoder {
 public:
  explicit PlaceFinder(SimulatedLocationService &service) : service_(service) {}

  void reverseGeocodeLocation(const Location &location, CompletionHandler completionHandler) override {
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
  const auto manager = std::make_shared<Manager>(*this);
  managers_.push_back(manager);
  return manager;
}

std::shared_ptr<Geocoder> SimulatedLocationService::makeGeocoder() {
  return geocoderPresent ? std::make_shared<PlaceFinder>(*this) : nullptr;
}

template <class Report>
void SimulatedLocationService::tellDelegates(Report report) {
  for (const auto &weak : managers_) {
    const auto manager = weak.lock();
    if (manager == nullptr) continue;
    scheduler_.mainQueue().async([manager, report] {
      if (const auto delegate = manager->delegate.lock()) report(*delegate, *manager);
    });
  }
}

void SimulatedLocationService::changeAuthorization(AuthorizationStatus newStatus) {
  status = newStatus;
  tellDelegates([newStatus](LocationManagerDelegate &delegate, LocationManager &manager) {
    delegate.locationManager(manager, newStatus);
  });
}

void SimulatedLocationService::moveTo(const Location &location) {
  position = location;
  if (!updating_) return;
  tellDelegates([location](LocationManagerDelegate &delegate, LocationManager &manager) {
    delegate.locationManager(manager, std::vector<Location>{location});
  });
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
