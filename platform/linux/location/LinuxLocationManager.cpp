#include "platform/linux/location/LinuxLocationManager.h"

#include <utility>
#include <vector>

#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

LinuxLocationManager::~LinuxLocationManager() {
  if (tracking_ != nullptr) track(&LocationTracking::update);  // which finds this manager gone
}

void LinuxLocationManager::track(void (LocationTracking::*task)()) {
  mainRunLoop_->perform([tracking = tracking_, task] { ((*tracking).*task)(); });
}

void LinuxLocationManager::setDelegate(const std::weak_ptr<LocationManagerDelegate> &delegate) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    delegate_ = delegate;
  }
  track(&LocationTracking::update);
}

void LinuxLocationManager::setDistanceFilter(double distanceFilter) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    request_.distanceFilter = distanceFilter;
  }
  track(&LocationTracking::distanceFilterChanged);
}

void LinuxLocationManager::startUpdatingLocation() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    request_.updating = true;
  }
  track(&LocationTracking::start);
}

void LinuxLocationManager::stopUpdatingLocation() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    request_.updating = false;
    ++request_.stops;
  }
  track(&LocationTracking::update);
}

std::optional<Location> LinuxLocationManager::location() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return location_;
}

LocationRequest LinuxLocationManager::request() {
  const std::lock_guard<std::mutex> lock(mutex_);
  LocationRequest request = request_;
  request.hasDelegate = !delegate_.expired();
  return request;
}

template <class Report>
void LinuxLocationManager::tellDelegate(Report report) {
  std::shared_ptr<LocationManagerDelegate> delegate;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    delegate = delegate_.lock();
  }
  if (delegate != nullptr) runAtBoundary([&] { report(*delegate); });
}

void LinuxLocationManager::tellAuthorization(AuthorizationStatus status) {
  tellDelegate([&](LocationManagerDelegate &delegate) { delegate.locationManager(*this, status); });
}

void LinuxLocationManager::tellPaused() {
  tellDelegate(
      [&](LocationManagerDelegate &delegate) { delegate.locationManagerDidPauseLocationUpdates(*this); });
}

void LinuxLocationManager::tellResumed() {
  tellDelegate(
      [&](LocationManagerDelegate &delegate) { delegate.locationManagerDidResumeLocationUpdates(*this); });
}

void LinuxLocationManager::found(const Location &location) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!request_.updating) return;
    location_ = location;
  }
  tellDelegate([&](LocationManagerDelegate &delegate) {
    delegate.locationManager(*this, std::vector<Location>{location});
  });
}

}  // namespace kx
