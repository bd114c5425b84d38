#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/places/PlaceTableWriter.h"

namespace kx::places {
namespace {

City city(const std::string &name, const std::string &region) {
  return {1, name, 0, 0, "PPL", "DE", region, 20000, "Europe/Berlin"};
}

TEST(PlaceTableWriter, WritesEachTextOnce) {
  const std::string once = placeTable({city("Neustadt", "DE.01")}, {});
  const std::string twice = placeTable({city("Neustadt", "DE.01"), city("Neustadt", "DE.01")}, {});
  EXPECT_EQ(twice.size(), once.size() + 16);
}

TEST(PlaceTableWriter, WritesTheBytesThatTheFormatSays) {
  const std::string table =
      placeTable({{1, "Ö", -1, 2, "PPL", "DE", "DE.01", 20000, "Etc/UTC"}}, {{"DE.01", "R"}});
  const std::string expected = std::string("KXPLACES\x01\0\0\0", 12) +
                               table.substr(12, 4) +  // of which the tests of the reader know
                               std::string("\x01\0\0\0\x01\0\0\0\x01\0\0\0\x0d\0\0\0", 16) +
                               std::string("\xff\xff\xff\xff\x02\0\0\0\0\0\0\0\0\0\0\0", 16) +
                               std::string("DE\0\0\x03\0\0\0", 8) + std::string("\x05\0\0\0", 4) +
                               "\x02Ö\x01R\x07"
                               "Etc/UTC";
  EXPECT_EQ(table, expected);
}

TEST(PlaceTableWriter, RefusesMoreRegionsThanThereAreNumbersFor) {
  std::vector<City> cities;
  for (int region = 0; region < 65536; ++region) cities.push_back(city("x", "DE." + std::to_string(region)));
  EXPECT_NO_THROW(placeTable(cities, {}));
  cities.push_back(city("x", "DE.one more"));
  EXPECT_THROW(placeTable(cities, {}), std::length_error);
}

TEST(PlaceTableWriter, RefusesATextThatIsTooLong) {
  EXPECT_NO_THROW(placeTable({city(std::string(255, 'x'), "DE.01")}, {}));
  EXPECT_THROW(placeTable({city(std::string(256, 'x'), "DE.01")}, {}), std::length_error);
}

}  // namespace
}  // namespace kx::places
