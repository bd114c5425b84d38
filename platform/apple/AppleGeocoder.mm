#include "platform/apple/AppleGeocoder.h"

#import <CoreLocation/CoreLocation.h>

#include <utility>

#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleDeprecated.h"
#include "platform/apple/AppleText.h"

namespace kx {

namespace {

CLLocation *systemLocationOf(const Location &location) {
  const CLLocationCoordinate2D coordinate{location.coordinate.latitude, location.coordinate.longitude};
  return [[CLLocation alloc] initWithCoordinate:coordinate
                                       altitude:location.altitude
                             horizontalAccuracy:location.horizontalAccuracy
                               verticalAccuracy:location.verticalAccuracy
                                      timestamp:[NSDate date]];
}

Placemark placemarkOf(CLPlacemark *systemPlacemark) {
  Placemark placemark;
  placemark.ISOcountryCode = textOf(systemPlacemark.ISOcountryCode);
  placemark.administrativeArea = textOf(systemPlacemark.administrativeArea);
  placemark.locality = textOf(systemPlacemark.locality);
  placemark.postalCode = textOf(systemPlacemark.postalCode);
  if ([systemPlacemark respondsToSelector:@selector(timeZone)]) {
    NSTimeZone *const timeZone = systemPlacemark.timeZone;
    if (timeZone != nil) placemark.timeZoneSecondsFromGMT = timeZone.secondsFromGMT;
  }
  return placemark;
}

// The successor belongs to MapKit and begins with iOS 26; until that is the oldest, this one is there on
// every iOS.
KX_DEPRECATED_BEGIN

class AppleGeocoder : public Geocoder {
 public:
  explicit AppleGeocoder(CLGeocoder *geocoder) : geocoder_(geocoder) {}

  void reverseGeocodeLocation(const Location &location, CompletionHandler completionHandler) override {
    [geocoder_ reverseGeocodeLocation:systemLocationOf(location)
                    completionHandler:^(NSArray<CLPlacemark *> *systemPlacemarks, NSError *) {
                      runAtBoundary([&] {
                        std::vector<Placemark> placemarks;
                        for (CLPlacemark *systemPlacemark in systemPlacemarks)
                          placemarks.push_back(placemarkOf(systemPlacemark));
                        completionHandler(placemarks);
                      });
                    }];
  }

  CLGeocoder *systemGeocoder() const { return geocoder_; }

 private:
  CLGeocoder *const geocoder_;
};

}  // namespace

std::shared_ptr<Geocoder> makeAppleGeocoder() {
  CLGeocoder *const geocoder = [[CLGeocoder alloc] init];
  return geocoder == nil ? nullptr : std::make_shared<AppleGeocoder>(geocoder);
}

CLGeocoder *systemGeocoderOf(const std::shared_ptr<Geocoder> &geocoder) {
  const auto appleGeocoder = std::dynamic_pointer_cast<AppleGeocoder>(geocoder);
  return appleGeocoder == nullptr ? nil : appleGeocoder->systemGeocoder();
}

KX_DEPRECATED_END

}  // namespace kx
