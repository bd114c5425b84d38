// CoreLocation's geocoder.

#import <CoreLocation/CoreLocation.h>

#include <deque>
#include <mutex>

#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

@interface CLPlacemark ()
@property(nonatomic, copy, nullable) NSString *ISOcountryCode;
@property(nonatomic, copy, nullable) NSString *administrativeArea;
@property(nonatomic, copy, nullable) NSString *locality;
@property(nonatomic, copy, nullable) NSString *postalCode;
@property(nonatomic, copy, nullable) NSTimeZone *timeZone;
@end

@implementation CLPlacemark
@end

namespace {

struct Requests {
  std::mutex mutex;
  std::deque<CLGeocodeCompletionHandler> waiting;
  CLLocation *latest = nil;
};

Requests &requests() {
  static auto *const requests = new Requests;
  return *requests;
}

}  // namespace

@implementation CLGeocoder

- (void)reverseGeocodeLocation:(CLLocation *)location
             completionHandler:(CLGeocodeCompletionHandler)completionHandler {
  kx::standin::note(__func__);
  const std::lock_guard<std::mutex> lock(requests().mutex);
  requests().waiting.push_back([completionHandler copy]);
  requests().latest = location;
}

@end

namespace kx::standin {

CLPlacemark *placemark(NSString *country, NSString *area, NSString *locality, NSString *postalCode,
                       NSTimeZone *timeZone) {
  CLPlacemark *const placemark = [CLPlacemark new];
  placemark.ISOcountryCode = country;
  placemark.administrativeArea = area;
  placemark.locality = locality;
  placemark.postalCode = postalCode;
  placemark.timeZone = timeZone;
  return placemark;
}

CLLocation *geocodedLocation() {
  const std::lock_guard<std::mutex> lock(requests().mutex);
  return requests().latest;
}

bool answerGeocoding(NSArray<CLPlacemark *> *placemarks, NSError *error) {
  CLGeocodeCompletionHandler handler = nil;
  {
    const std::lock_guard<std::mutex> lock(requests().mutex);
    if (requests().waiting.empty()) return false;
    handler = requests().waiting.front();
    requests().waiting.pop_front();
  }
  dispatch_async(dispatch_get_main_queue(), ^{
    handler(placemarks, error);
  });
  return true;
}

}  // namespace kx::standin
