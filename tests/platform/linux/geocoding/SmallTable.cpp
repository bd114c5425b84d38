#include "tests/platform/linux/geocoding/SmallTable.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <stdexcept>

#include "platform/linux/geocoding/PlaceTableFormat.h"
#include "tools/places/PlaceTableWriter.h"

namespace kx {

places::City placeAt(double latitude, double longitude, const std::string &name, const std::string &country,
                     const std::string &timeZone) {
  places::City city{};
  city.name = name;
  city.latitude = static_cast<std::int32_t>(std::lround(latitude * placetable::unitsPerDegree));
  city.longitude = static_cast<std::int32_t>(std::lround(longitude * placetable::unitsPerDegree));
  city.feature = "PPL";
  city.country = country;
  city.region = country + ".01";
  city.population = 20000;
  city.timeZone = timeZone;
  return city;
}

std::string smallTable(std::vector<places::City> places) {
  std::sort(places.begin(), places.end(),
            [](const places::City &one, const places::City &other) { return one.latitude < other.latitude; });
  return places::placeTable(places, {{"DE.01", "Somewhere"}});
}

void setChecksum(std::string &table) {
  const std::size_t size = table.size() - placetable::checkedOffset;
  const auto *const checked = reinterpret_cast<const Bytef *>(table.data()) + placetable::checkedOffset;
  const auto checksum = static_cast<std::uint32_t>(crc32(0, checked, static_cast<uInt>(size)));
  for (std::size_t index = 0; index < 4; ++index) {
    table[placetable::checksumOffset + index] = static_cast<char>(checksum >> 8 * index & 0xff);
  }
}

void writeFile(const std::string &path, const std::string &bytes) {
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
}

}  // namespace kx
