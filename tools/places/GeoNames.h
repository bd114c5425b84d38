#pragma once

#include <cstdint>
#include <istream>
#include <map>
#include <set>
#include <string>
#include <vector>

// GeoNames' files, as http://download.geonames.org/export/dump/readme.txt describes them. Whatever is not
// as it says there is MalformedInput.

namespace kx::places {

/// A populated place.
struct City {
  std::uint32_t id;  ///< its GeoNames number
  std::string name;
  std::int32_t latitude;   ///< in 1/100000 degree
  std::int32_t longitude;  ///< in 1/100000 degree
  std::string feature;     ///< what kind of place it is, "PPLC" for a capital
  std::string country;     ///< ISO 3166-1 alpha-2
  std::string region;      ///< the country's first-level division, "DE.01"
  std::uint64_t population;
  std::string timeZone;  ///< IANA identifier
};

/// The names of first-level divisions, by country and code: "DE.01". Empty where there is none.
using RegionNames = std::map<std::string, std::string>;

/// Reads "countryInfo.txt": the codes of all countries.
std::set<std::string> readCountries(std::istream &input, const std::string &fileName);

/// Reads "admin1Codes.txt".
RegionNames readRegionNames(std::istream &input, const std::string &fileName);

/// Reads "cities15000.txt": places of `countries`, in the order of the file.
std::vector<City> readCities(std::istream &input, const std::string &fileName,
                             const std::set<std::string> &countries);

}  // namespace kx::places
