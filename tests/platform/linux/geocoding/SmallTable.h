#pragma once

#include <string>
#include <vector>

#include "tools/places/GeoNames.h"

namespace kx {

/// A place that is shown on no map, at a position in degrees. Its region is the first of its country.
places::City placeAt(double latitude, double longitude, const std::string &name,
                     const std::string &country = "DE", const std::string &timeZone = "Europe/Berlin");

/// The bytes of a table of these places, in whatever order they come. Only the region "DE.01" has a name,
/// which is "Somewhere".
std::string smallTable(std::vector<places::City> places);

/// Sets a table's checksum to what its bytes are now.
void setChecksum(std::string &table);

/// Writes a file.
void writeFile(const std::string &path, const std::string &bytes);

}  // namespace kx
