#include "platform/linux/geocoding/PlaceTable.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/linux/facts/SystemText.h"
#include "platform/linux/geocoding/PlaceTableFormat.h"

namespace kx {

using namespace placetable;

namespace {

constexpr double earthRadius = 6371000;  // metres; the sphere is within half a percent of the ellipsoid
constexpr double pi = 3.14159265358979323846;
constexpr double radiansPerDegree = pi / 180;

// Byte by byte, so that neither the machine's byte order nor its alignment matters.

std::uint16_t number16(const std::uint8_t *at) {
  return static_cast<std::uint16_t>(at[0] | at[1] << 8);
}

std::uint32_t number32(const std::uint8_t *at) {
  return number16(at) | static_cast<std::uint32_t>(number16(at + 2)) << 16;
}

double degrees(const std::uint8_t *at) {
  return static_cast<double>(static_cast<std::int32_t>(number32(at))) / unitsPerDegree;
}

/// The haversine of an angle in radians. It grows with the angle, so that distances can be compared by it.
double haversine(double angle) {
  const double sine = std::sin(angle / 2);
  return sine * sine;
}

bool isOnEarth(const LocationCoordinate &position) {
  return std::abs(position.latitude) <= 90 && std::abs(position.longitude) <= 180;  // false for NaN
}

}  // namespace

std::optional<PlaceTable> PlaceTable::in(const std::uint8_t *bytes, std::size_t size) {
  if (size < headerSize || size > largestSize) return std::nullopt;
  if (std::memcmp(bytes, magic.data(), magic.size()) != 0) return std::nullopt;
  if (number32(bytes + versionOffset) != version) return std::nullopt;
  const auto checkedSize = static_cast<uInt>(size - checkedOffset);
  if (number32(bytes + checksumOffset) != crc32(0, bytes + checkedOffset, checkedSize)) return std::nullopt;

  PlaceTable table;
  table.placesCount_ = number32(bytes + 16);
  table.regionsCount_ = number32(bytes + 20);
  table.zonesCount_ = number32(bytes + 24);
  table.textsSize_ = number32(bytes + 28);
  const std::uint64_t regions = headerSize + std::uint64_t{table.placesCount_} * placeSize;
  const std::uint64_t zones = regions + std::uint64_t{table.regionsCount_} * regionSize;
  const std::uint64_t texts = zones + std::uint64_t{table.zonesCount_} * zoneSize;
  if (texts + table.textsSize_ != size) return std::nullopt;

  table.places_ = bytes + headerSize;
  table.regions_ = bytes + regions;
  table.zones_ = bytes + zones;
  table.texts_ = bytes + texts;
  return table;
}

double PlaceTable::latitudeOf(std::uint32_t place) const {
  return degrees(places_ + place * placeSize);
}

double PlaceTable::longitudeOf(std::uint32_t place) const {
  return degrees(places_ + place * placeSize + 4);
}

/// The southernmost place that does not lie south of `latitude`; their number when there is none.
std::uint32_t PlaceTable::firstFrom(double latitude) const {
  std::uint32_t first = 0;
  std::uint32_t end = placesCount_;
  while (first < end) {
    const std::uint32_t middle = first + (end - first) / 2;
    if (latitudeOf(middle) < latitude) {
      first = middle + 1;
    } else {
      end = middle;
    }
  }
  return first;
}

// From the position's latitude both to the north and to the south, until every further place is too far away
// by its latitude alone. Longitudes are only ever compared by the great-circle distance: so there is nothing
// special about the date line and the poles.
std::optional<Place> PlaceTable::nearest(const LocationCoordinate &position, double withinMetres) const {
  if (!isOnEarth(position)) return std::nullopt;
  const double latitude = position.latitude * radiansPerDegree;
  const double longitude = position.longitude * radiansPerDegree;
  const double cosine = std::cos(latitude);

  std::optional<std::uint32_t> nearest;
  double shortest = haversine(std::min(withinMetres / earthRadius, pi));
  const auto isInReach = [&](std::uint32_t place) {
    const double placeLatitude = latitudeOf(place) * radiansPerDegree;
    const double alongMeridian = haversine(placeLatitude - latitude);
    if (alongMeridian > shortest) return false;
    const double distance = alongMeridian + cosine * std::cos(placeLatitude) *
                                                haversine(longitudeOf(place) * radiansPerDegree - longitude);
    if (distance < shortest) {
      shortest = distance;
      nearest = place;
    }
    return true;
  };

  std::uint32_t north = firstFrom(position.latitude);
  std::uint32_t south = north;
  bool goNorth = true;
  bool goSouth = true;
  while (goNorth || goSouth) {
    goNorth = goNorth && north < placesCount_ && isInReach(north++);
    goSouth = goSouth && south > 0 && isInReach(--south);
  }
  return nearest ? entryOf(*nearest) : std::nullopt;
}

std::optional<Place> PlaceTable::entryOf(std::uint32_t place) const {
  const std::uint8_t *const entry = places_ + place * placeSize;
  const std::uint16_t region = number16(entry + 12);
  const std::uint16_t zone = number16(entry + 14);
  if (region >= regionsCount_ || zone >= zonesCount_) return std::nullopt;
  const std::uint8_t *const regionEntry = regions_ + region * regionSize;
  const std::uint32_t regionName = number32(regionEntry + 4);

  auto country = validText(std::string(reinterpret_cast<const char *>(regionEntry), 2));
  auto regionText = regionName == noText ? std::nullopt : text(regionName);
  auto name = text(number32(entry + 8));
  auto timeZone = text(number32(zones_ + zone * zoneSize));
  if (!country || (!regionText && regionName != noText) || !name || !timeZone) return std::nullopt;
  return Place{std::move(*country), std::move(regionText), std::move(*name), std::move(*timeZone)};
}

std::optional<std::string> PlaceTable::text(std::uint32_t offset) const {
  if (offset >= textsSize_) return std::nullopt;
  const std::size_t length = texts_[offset];
  if (length > textsSize_ - offset - 1) return std::nullopt;
  return validText(std::string(reinterpret_cast<const char *>(texts_ + offset + 1), length));
}

}  // namespace kx
