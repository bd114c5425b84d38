#pragma once

#include <string>
#include <vector>

#include "tools/places/GeoNames.h"

namespace kx::places {

/// The bytes of a table of these places, which are sorted from south to north: PlaceTableFormat.h describes
/// them. The same places make the same bytes. Throws std::length_error when there are more regions or time
/// zones than the format has numbers for.
std::string placeTable(const std::vector<City> &places, const RegionNames &regionNames);

}  // namespace kx::places
