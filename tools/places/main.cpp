#include <cerrno>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <system_error>

#include "tools/places/GeoNames.h"
#include "tools/places/PlaceSelection.h"
#include "tools/places/PlaceTableWriter.h"
#include "tools/places/TimeZoneChanges.h"

using namespace kx::places;

namespace {

std::ifstream opened(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::system_error(errno, std::generic_category(), path);
  return file;
}

/// Under another name first: whoever has the old table mapped keeps it, and none is ever half there.
void writeFile(const std::string &path, const std::string &bytes) {
  const std::string newPath = path + ".new";
  std::ofstream file(newPath, std::ios::binary);
  file << bytes;
  file.close();
  if (!file) throw std::system_error(errno, std::generic_category(), newPath);
  std::filesystem::rename(newPath, path);
}

void makeTable(const std::string &citiesPath, const std::string &regionsPath,
               const std::string &countriesPath, const std::string &changesPath,
               const std::string &tablePath) {
  std::ifstream countriesFile = opened(countriesPath);
  std::ifstream regionsFile = opened(regionsPath);
  std::ifstream citiesFile = opened(citiesPath);
  std::ifstream changesFile = opened(changesPath);
  const auto countries = readCountries(countriesFile, countriesPath);
  const auto regionNames = readRegionNames(regionsFile, regionsPath);
  auto cities = readCities(citiesFile, citiesPath, countries);
  applyTimeZoneChanges(readTimeZoneChanges(changesFile, changesPath), cities);
  writeFile(tablePath, placeTable(selectPlaces(cities), regionNames));
}

}  // namespace

int main(int count, char **arguments) {
  if (count != 6) {
    std::cerr
        << "Makes the table of places from GeoNames' data.\n\n"
           "usage: kx-places cities15000.txt admin1Codes.txt countryInfo.txt time-zone-changes.txt TABLE\n";
    return 2;
  }
  try {
    makeTable(arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
    return 0;
  } catch (const std::exception &error) {
    std::cerr << "kx-places: " << error.what() << std::endl;
    return 1;
  }
}
