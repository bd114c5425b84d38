#include "platform/apple/AppleLocation.h"

#import <CoreLocation/CoreLocation.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleDeprecated.h"
#include "platform/apple/AppleGeocoder.h"

namespace {

kx::Location locationOf(CLLocation *location) {
  return {{location.coordinate.latitude, location.coordinate.longitude},
          location.horizontalAccuracy,
          location.altitude,
          location.verticalAccuracy};
}

// The successor is asked of a manager, and who asks here has none at hand.
KX_DEPRECATED_BEGIN
kx::AuthorizationStatus currentAuthorization() {
  return static_cast<kx::AuthorizationStatus>([CLLocationManager authorizationStatus]);
}
KX_DEPRECATED_END

}  // namespace

/// The delegate of a CLLocationManager: hands what it is told to the delegate of the library's own manager.
@interface KXPublisherLocationDelegate : NSObject <CLLocationManagerDelegate>
- (void)setManager:(const std::weak_ptr<kx::LocationManager> &)manager
          delegate:(const std::weak_ptr<kx::LocationManagerDelegate> &)delegate;
/// Tells of the authorization as of one that has changed.
- (void)reportAuthorization;
@end

@implementation KXPublisherLocationDelegate {
  std::mutex _mutex;
  std::weak_ptr<kx::LocationManager> _manager;
  std::weak_ptr<kx::LocationManagerDelegate> _delegate;
}

- (void)setManager:(const std::weak_ptr<kx::LocationManager> &)manager
          delegate:(const std::weak_ptr<kx::LocationManagerDelegate> &)delegate {
  const std::lock_guard<std::mutex> lock(_mutex);
  _manager = manager;
  _delegate = delegate;
}

/// `message` is composed where nothing may be thrown any further, too: the system's objects may raise.
- (void)tell:(const std::function<void(kx::LocationManagerDelegate &, kx::LocationManager &)> &)message {
  kx::runAtBoundary([&] {
    std::shared_ptr<kx::LocationManager> manager;
    std::shared_ptr<kx::LocationManagerDelegate> delegate;
    {
      const std::lock_guard<std::mutex> lock(self->_mutex);
      manager = self->_manager.lock();
      delegate = self->_delegate.lock();
    }
    if (manager != nullptr && delegate != nullptr) message(*delegate, *manager);
  });
}

- (void)reportAuthorization {
  [self tell:[](kx::LocationManagerDelegate &delegate, kx::LocationManager &libraryManager) {
    delegate.locationManager(libraryManager, currentAuthorization());
  }];
}

- (void)locationManager:(CLLocationManager *)__attribute__((unused))manager
    didChangeAuthorizationStatus:(CLAuthorizationStatus)status {
  [self tell:[status](kx::LocationManagerDelegate &delegate, kx::LocationManager &libraryManager) {
    delegate.locationManager(libraryManager, static_cast<kx::AuthorizationStatus>(status));
  }];
}

/// What iOS 14 calls instead of the one above.
- (void)locationManagerDidChangeAuthorization:(CLLocationManager *)manager API_AVAILABLE(ios(14.0)) {
  [self tell:[manager](kx::LocationManagerDelegate &delegate, kx::LocationManager &libraryManager) {
    delegate.locationManager(libraryManager,
                             static_cast<kx::AuthorizationStatus>(manager.authorizationStatus));
  }];
}

- (void)locationManager:(CLLocationManager *)__attribute__((unused))manager
     didUpdateLocations:(NSArray<CLLocation *> *)systemLocations {
  [self tell:[systemLocations](kx::LocationManagerDelegate &delegate, kx::LocationManager &libraryManager) {
    std::vector<kx::Location> locations;
    for (CLLocation *location in systemLocations) locations.push_back(locationOf(location));
    delegate.locationManager(libraryManager, locations);
  }];
}

- (void)locationManagerDidPauseLocationUpdates:(CLLocationManager *)__attribute__((unused))manager {
  [self tell:[](kx::LocationManagerDelegate &delegate, kx::LocationManager &libraryManager) {
    delegate.locationManagerDidPauseLocationUpdates(libraryManager);
  }];
}

- (void)locationManagerDidResumeLocationUpdates:(CLLocationManager *)__attribute__((unused))manager {
  [self tell:[](kx::LocationManagerDelegate &delegate, kx::LocationManager &libraryManager) {
    delegate.locationManagerDidResumeLocationUpdates(libraryManager);
  }];
}

@end

namespace kx {

class AppleLocationManager : public LocationManager {
 public:
  explicit AppleLocationManager(CLLocationManager *manager) : manager_(manager) {}
  ~AppleLocationManager() override { manager_.delegate = nil; }

  void setDelegate(const std::weak_ptr<LocationManagerDelegate> &delegate) override {
    [delegate_ setManager:std::static_pointer_cast<LocationManager>(weak_from_this().lock())
                 delegate:delegate];
    manager_.delegate = delegate_;
  }
  void setDistanceFilter(double distanceFilter) override { manager_.distanceFilter = distanceFilter; }
  void startUpdatingLocation() override { [manager_ startUpdatingLocation]; }
  void stopUpdatingLocation() override { [manager_ stopUpdatingLocation]; }

  void reportAuthorization() { [delegate_ reportAuthorization]; }
  CLLocationManager *systemManager() const { return manager_; }

  std::optional<Location> location() override {
    CLLocation *const location = manager_.location;
    if (location == nil) return std::nullopt;
    return locationOf(location);
  }

 private:
  CLLocationManager *const manager_;
  KXPublisherLocationDelegate *const delegate_ = [[KXPublisherLocationDelegate alloc] init];
};

CLLocationManager *systemManagerOf(const std::shared_ptr<LocationManager> &manager) {
  const auto appleManager = std::dynamic_pointer_cast<AppleLocationManager>(manager);
  return appleManager == nullptr ? nil : appleManager->systemManager();
}

std::shared_ptr<LocationManager> AppleLocationService::makeLocationManager() {
  CLLocationManager *const systemManager = [[CLLocationManager alloc] init];
  if (systemManager == nil) return nullptr;
  auto manager = std::make_shared<AppleLocationManager>(systemManager);
  const std::lock_guard<std::mutex> lock(managers_->mutex);
  auto &all = managers_->all;
  all.erase(std::remove_if(all.begin(), all.end(), [](const auto &weak) { return weak.expired(); }),
            all.end());
  all.push_back(manager);
  return manager;
}

std::shared_ptr<AppleLocationSwitch> AppleLocationService::switchFor(
    const std::shared_ptr<Managers> &managers) {
  return std::make_shared<AppleLocationSwitch>([managers] {
    std::vector<std::weak_ptr<AppleLocationManager>> all;
    {
      const std::lock_guard<std::mutex> lock(managers->mutex);
      all = managers->all;
    }
    for (const auto &weak : all) {
      if (const auto manager = weak.lock()) manager->reportAuthorization();
    }
  });
}

AuthorizationStatus AppleLocationService::authorizationStatus() {
  return currentAuthorization();
}

std::shared_ptr<Geocoder> AppleLocationService::makeGeocoder() {
  return makeAppleGeocoder();
}

}  // namespace kx
