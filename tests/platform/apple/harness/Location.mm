// CoreLocation's location manager.

#import <CoreLocation/CoreLocation.h>

#include <atomic>

#include "tests/platform/apple/harness/LiveObjects.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

using kx::standin::callOut;
using kx::standin::locationServices;
using kx::standin::note;

@interface CLLocationManager () {
 @public
  std::atomic<bool> _isUpdating;
  NSThread *_thread;
}
@end

namespace {

kx::standin::LiveObjects<CLLocationManager> &managers() {
  static auto *const managers = new kx::standin::LiveObjects<CLLocationManager>;
  return *managers;
}

/// Lets every location manager do that on its own thread.
void tellManagers(SEL selector, id argument) {
  for (CLLocationManager *manager : managers().all()) {
    if (manager->_thread.isFinished) continue;
    [manager performSelector:selector
                    onThread:manager->_thread
                  withObject:argument
               waitUntilDone:NO
                       modes:@[ NSDefaultRunLoopMode, UITrackingRunLoopMode ]];
  }
}

}  // namespace

@implementation CLLocation {
  CLLocationCoordinate2D _coordinate;
  CLLocationDistance _altitude;
  CLLocationAccuracy _horizontalAccuracy;
  CLLocationAccuracy _verticalAccuracy;
  NSDate *_timestamp;
}

- (instancetype)initWithCoordinate:(CLLocationCoordinate2D)coordinate
                          altitude:(CLLocationDistance)altitude
                horizontalAccuracy:(CLLocationAccuracy)horizontalAccuracy
                  verticalAccuracy:(CLLocationAccuracy)verticalAccuracy
                         timestamp:(NSDate *)timestamp {
  if ((self = [super init]) != nil) {
    _coordinate = coordinate;
    _altitude = altitude;
    _horizontalAccuracy = horizontalAccuracy;
    _verticalAccuracy = verticalAccuracy;
    _timestamp = timestamp;
  }
  return self;
}

- (CLLocationCoordinate2D)coordinate {
  note(__func__);
  return _coordinate;
}

- (NSDate *)timestamp {
  return _timestamp;
}

@end

@implementation CLLocationManager

+ (BOOL)locationServicesEnabled {
  note(__func__);
  if ([NSThread isMainThread]) {
    [NSException raise:NSInternalInconsistencyException format:@"The main thread would be unresponsive"];
  }
  return locationServices().areEnabled;
}

+ (CLAuthorizationStatus)authorizationStatus {
  note(__func__);
  return locationServices().authorizationStatus;
}

- (instancetype)init {
  note(__func__);
  if ((self = [super init]) != nil) {
    _isUpdating = false;
    _thread = [NSThread currentThread];
    managers().add(self);
  }
  return self;
}

- (CLAuthorizationStatus)authorizationStatus {
  note(__func__);
  return locationServices().authorizationStatus;
}

- (CLLocation *)location {
  note(__func__);
  return locationServices().location;
}

- (void)startUpdatingLocation {
  note(__func__);
  _isUpdating = true;
}

- (void)stopUpdatingLocation {
  note(__func__);
  _isUpdating = false;
}

// ---- What happens to it, on its own thread.

- (void)reportLocations:(NSArray<CLLocation *> *)locations {
  if (!_isUpdating) return;
  if ([self.delegate respondsToSelector:@selector(locationManager:didUpdateLocations:)]) {
    callOut([&] { [self.delegate locationManager:self didUpdateLocations:locations]; });
  }
}

- (void)reportAuthorization:(id)unused {
  // A system that knows the newer of the two calls no other.
  if (locationServices().knowsItsOwnAuthorization &&
      [self.delegate respondsToSelector:@selector(locationManagerDidChangeAuthorization:)]) {
    callOut([&] { [self.delegate locationManagerDidChangeAuthorization:self]; });
  } else if ([self.delegate respondsToSelector:@selector(locationManager:didChangeAuthorizationStatus:)]) {
    const CLAuthorizationStatus status = locationServices().authorizationStatus;
    callOut([&] { [self.delegate locationManager:self didChangeAuthorizationStatus:status]; });
  }
}

- (void)reportPause:(id)unused {
  if ([self.delegate respondsToSelector:@selector(locationManagerDidPauseLocationUpdates:)]) {
    callOut([&] { [self.delegate locationManagerDidPauseLocationUpdates:self]; });
  }
}

- (void)reportResumption:(id)unused {
  if ([self.delegate respondsToSelector:@selector(locationManagerDidResumeLocationUpdates:)]) {
    callOut([&] { [self.delegate locationManagerDidResumeLocationUpdates:self]; });
  }
}

@end

namespace kx::standin {

LocationServices &locationServices() {
  static auto *const services = new LocationServices;
  return *services;
}

CLLocation *locationAt(double latitude, double longitude, double horizontalAccuracy) {
  return [[CLLocation alloc] initWithCoordinate:{latitude, longitude}
                                       altitude:35.5
                             horizontalAccuracy:horizontalAccuracy
                               verticalAccuracy:-1
                                      timestamp:[NSDate date]];
}

void moveTo(CLLocation *location) {
  moveTo(@[ location ]);
}

void moveTo(NSArray<CLLocation *> *locations) {
  locationServices().location = locations.lastObject;
  tellManagers(@selector(reportLocations:), locations);
}

void changeAuthorization(CLAuthorizationStatus status) {
  locationServices().authorizationStatus = status;
  tellManagers(@selector(reportAuthorization:), nil);
}

void pauseLocationUpdates() {
  tellManagers(@selector(reportPause:), nil);
}

void resumeLocationUpdates() {
  tellManagers(@selector(reportResumption:), nil);
}

int locationManagers() {
  @autoreleasepool {
    return static_cast<int>(managers().all().size());
  }
}

int updatingLocationManagers() {
  @autoreleasepool {
    int updating = 0;
    for (const CLLocationManager *manager : managers().all()) updating += manager->_isUpdating ? 1 : 0;
    return updating;
  }
}

CLLocationManager *latestLocationManager() {
  const auto alive = managers().all();
  return alive.empty() ? nil : alive.back();
}

double distanceFilter() {
  @autoreleasepool {
    return latestLocationManager().distanceFilter;
  }
}

}  // namespace kx::standin
