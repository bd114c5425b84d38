#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "KXPublisher/platform/LocationManager.h"

namespace kx {

/// A populated place, and what it lies in. All texts are valid UTF-8.
struct Place {
  std::string country;                ///< ISO 3166-1 alpha-2
  std::optional<std::string> region;  ///< the country's first-level division, where it is known
  std::string name;
  std::string timeZone;  ///< IANA identifier
};

/// The places of the world, read where they lie: PlaceTableFormat.h says how. Looking one up allocates
/// nothing but the answer.
///
/// The bytes may be anything. What is no table, or a damaged one, is refused. Should a damaged one pass for a
/// whole one all the same, it answers wrongly or not at all, but it is never read outside its bounds.
///
/// May be used from any thread, and by several at the same time.
class PlaceTable {
 public:
  /// The table in these bytes, which must outlive it; reads all of them once. Absent when their magic,
  /// version, checksum or counts are not right.
  static std::optional<PlaceTable> in(const std::uint8_t *bytes, std::size_t size);

  /// The place nearest to `position` along a great circle, if it lies less than that many metres away. Absent
  /// when none does, the position is none on earth, or the place's entry is damaged.
  std::optional<Place> nearest(const LocationCoordinate &position, double withinMetres) const;

 private:
  PlaceTable() = default;

  double latitudeOf(std::uint32_t place) const;   // degrees
  double longitudeOf(std::uint32_t place) const;  // degrees
  std::uint32_t firstFrom(double latitude) const;
  std::optional<Place> entryOf(std::uint32_t place) const;
  std::optional<std::string> text(std::uint32_t offset) const;

  const std::uint8_t *places_ = nullptr;
  const std::uint8_t *regions_ = nullptr;
  const std::uint8_t *zones_ = nullptr;
  const std::uint8_t *texts_ = nullptr;
  std::uint32_t placesCount_ = 0;
  std::uint32_t regionsCount_ = 0;
  std::uint32_t zonesCount_ = 0;
  std::uint32_t textsSize_ = 0;
};

}  // namespace kx
