#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "KXPublisher/platform/LocationManager.h"
#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// A place in words (CLPlacemark). Each field may be unknown.
struct Placemark {
  std::optional<std::string> ISOcountryCode;      ///< ISO 3166-1 alpha-2, "DE"
  std::optional<std::string> administrativeArea;  ///< state, region, province
  std::optional<std::string> locality;            ///< city
  std::optional<std::string> postalCode;
  /// `secondsFromGMT` of the place's `timeZone`: seconds east of Greenwich, as of now. Absent too when the
  /// system's placemarks have no time zone at all.
  std::optional<std::int64_t> timeZoneSecondsFromGMT;
};

/// Finds the place at a position (CLGeocoder). May be used from any thread.
class KX_EXPORT Geocoder : public Object {
 public:
  /// Receives the places found, the best first; empty when there is none, or on any failure.
  using CompletionHandler = std::function<void(const std::vector<Placemark> &placemarks)>;

  /// `reverseGeocodeLocation:completionHandler:`: returns at once and calls the handler at most once, on a
  /// thread of the platform's choosing; never from within this call.
  virtual void reverseGeocodeLocation(const Location &location, CompletionHandler completionHandler) = 0;
};

}  // namespace kx
