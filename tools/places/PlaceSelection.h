#pragma once

#include <vector>

#include "tools/places/GeoNames.h"

namespace kx::places {

/// Leaves what a position is to be named after, from south to north:
///
/// No places that are no more: abandoned (PPLQ), historical (PPLH, PPLCH) and destroyed ones (PPLW). None
/// without inhabitants, which are government buildings, except capitals (PPLC).
///
/// No sections of cities (PPLX). But where no city of its country within 25 km has even half as many
/// inhabitants, a "section" is the city itself, and stays.
///
/// Of several places at the same position only the one with the most inhabitants.
std::vector<City> selectPlaces(const std::vector<City> &cities);

}  // namespace kx::places
