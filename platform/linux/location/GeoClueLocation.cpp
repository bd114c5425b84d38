#include "platform/linux/location/GeoClueLocation.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kx {

namespace {

/// A property that is a finite number from `least` to `greatest`.
std::optional<double> number(GVariant *properties, const char *name, double least, double greatest) {
  double value = 0;
  if (g_variant_lookup(properties, name, "d", &value) == FALSE) return std::nullopt;
  return value >= least && value <= greatest ? std::optional<double>(value) : std::nullopt;
}

}  // namespace

std::optional<Location> locationFromProperties(GVariant *properties) {
  constexpr double greatest = std::numeric_limits<double>::max();
  const auto latitude = number(properties, "Latitude", -90, 90);
  const auto longitude = number(properties, "Longitude", -180, 180);
  const auto accuracy = number(properties, "Accuracy", 0, greatest);
  if (!latitude || !longitude || !accuracy) return std::nullopt;

  Location location;
  location.coordinate = {*latitude, *longitude};
  location.horizontalAccuracy = *accuracy;
  // One that is not known is the lowest number of all.
  location.altitude = number(properties, "Altitude", std::nextafter(-greatest, 0), greatest).value_or(0);
  return location;
}

std::uint32_t distanceThreshold(double distanceFilter) {
  if (!(distanceFilter > 0)) return 0;
  constexpr double greatest = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(std::min(std::ceil(distanceFilter), greatest));
}

}  // namespace kx
