#pragma once

#include <istream>
#include <string>
#include <vector>

#include "tools/places/GeoNames.h"

namespace kx::places {

/// A correction of the data's time zones; "time-zone-changes.txt" explains them.
struct TimeZoneChange {
  std::string whose;
  std::string from;
  std::string to;
};

/// Reads a file of them. Throws MalformedInput.
std::vector<TimeZoneChange> readTimeZoneChanges(std::istream &input, const std::string &fileName);

/// Applies to each city the first change that fits it.
void applyTimeZoneChanges(const std::vector<TimeZoneChange> &changes, std::vector<City> &cities);

}  // namespace kx::places
