#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <optional>

#include "KXPublisher/platform/LocationManager.h"

// What GeoClue says, in the words of the location manager.

namespace kx {

/// The position that a location object describes by its properties, of type a{sv}. Absent when they make no
/// sense: where a coordinate or the accuracy is missing, has another type, is no finite number or lies out of
/// range. A negative accuracy, one that the service does not know, is out of range too, since a location
/// manager would say by it that the coordinate is invalid.
///
/// GeoClue knows no vertical accuracy, so it is -1 always. The altitude is 0 when GeoClue does not know it.
std::optional<Location> locationFromProperties(GVariant *properties);

/// The distance threshold, in whole metres, under which no position is nearer to the last one than
/// `distanceFilter`. 0, for every position, when that is not positive.
std::uint32_t distanceThreshold(double distanceFilter);

}  // namespace kx
