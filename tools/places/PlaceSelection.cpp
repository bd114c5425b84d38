#include "tools/places/PlaceSelection.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "platform/linux/geocoding/PlaceTableFormat.h"

namespace kx::places {

namespace {

constexpr double cityRadius = 25;  // kilometres

const std::string section = "PPLX";
const std::string capital = "PPLC";
const std::set<std::string> featuresOfThePast = {"PPLQ", "PPLH", "PPLCH", "PPLW"};

/// Kilometres between two places that are close together.
double distance(const City &one, const City &other) {
  constexpr double kilometresPerUnit = 111.195 / placetable::unitsPerDegree;
  constexpr double radiansPerUnit = 3.14159265358979323846 / 180 / placetable::unitsPerDegree;
  const double north = one.latitude - other.latitude;
  const double east = std::remainder(static_cast<double>(one.longitude) - other.longitude,
                                     360.0 * placetable::unitsPerDegree);
  return kilometresPerUnit * std::hypot(north, east * std::cos(one.latitude * radiansPerUnit));
}

bool exists(const City &city) {
  return featuresOfThePast.count(city.feature) == 0 && (city.population > 0 || city.feature == capital);
}

bool isSectionOf(const City &city, const City &other) {
  return other.feature != section && other.country == city.country &&
         other.population >= city.population / 2 && distance(city, other) <= cityRadius;
}

}  // namespace

std::vector<City> selectPlaces(const std::vector<City> &cities) {
  std::vector<City> existing;
  std::copy_if(cities.begin(), cities.end(), std::back_inserter(existing), exists);

  std::vector<City> selected;
  for (const City &city : existing) {
    const auto holdsIt = [&city](const City &other) { return isSectionOf(city, other); };
    if (city.feature == section && std::any_of(existing.begin(), existing.end(), holdsIt)) continue;
    selected.push_back(city);
  }

  std::sort(selected.begin(), selected.end(), [](const City &one, const City &other) {
    return std::tuple(one.latitude, one.longitude, other.population, one.id) <
           std::tuple(other.latitude, other.longitude, one.population, other.id);
  });
  const auto samePosition = [](const City &one, const City &other) {
    return one.latitude == other.latitude && one.longitude == other.longitude;
  };
  selected.erase(std::unique(selected.begin(), selected.end(), samePosition), selected.end());
  return selected;
}

}  // namespace kx::places
