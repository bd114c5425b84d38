#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/platform/linux/geocoding/GeocoderFixture.h"

// The table that the library comes with, looked at through the geocoder. What is to be found was checked by
// hand, offsets against the rules that are in force in 2026. The spelling of names is that of the data.

namespace kx {
namespace {

struct Expectation {
  const char *where;
  double latitude;
  double longitude;
  const char *country;
  std::optional<std::string> administrativeArea;
  const char *locality;
  double hoursInJanuary;
  double hoursInJuly;
};

struct Nowhere {
  const char *where;
  double latitude;
  double longitude;
};

class PlacesOfTheWorld : public GeocoderFixture {
 protected:
  void SetUp() override {
    if (!KX_HAS_PLACE_TABLE) GTEST_SKIP() << "built without the table: libtimezonemap-data was missing";
  }

  void expect(const Expectation &expected) {
    for (const bool inJuly : {false, true}) {
      clock_.time = inJuly ? july : january;
      const auto found = placemarksAt(*geocoder_, expected.latitude, expected.longitude);
      ASSERT_EQ(found.size(), 1U) << expected.where;
      const double hours = inJuly ? expected.hoursInJuly : expected.hoursInJanuary;
      EXPECT_EQ(found[0].ISOcountryCode, expected.country) << expected.where;
      EXPECT_EQ(found[0].administrativeArea, expected.administrativeArea) << expected.where;
      EXPECT_EQ(found[0].locality, expected.locality) << expected.where;
      EXPECT_EQ(found[0].postalCode, std::nullopt) << expected.where;
      EXPECT_EQ(found[0].timeZoneSecondsFromGMT, hours * 3600) << expected.where;
    }
  }

  const std::shared_ptr<Geocoder> geocoder_ = std::make_shared<LinuxGeocoder>(dispatch(), clock_);
};

TEST_F(PlacesOfTheWorld, WellKnownOnes) {
  const std::vector<Expectation> places{
      {"the Reichstag", 52.5186, 13.3762, "DE", "Berlin", "Berlin", 1, 2},
      {"Trafalgar Square", 51.5080, -0.1281, "GB", "England", "London", 0, 1},
      {"the Puerta del Sol", 40.4169, -3.7035, "ES", "Madrid", "Madrid", 1, 2},
      {"the Colosseum", 41.8902, 12.4922, "IT", "Latium", "Rome", 1, 2},
      {"Red Square", 55.7539, 37.6208, "RU", "Moscow", "Moscow", 3, 3},
      {"the Hagia Sophia", 41.0086, 28.9802, "TR", "Istanbul", "İstanbul", 3, 3},
      {"Tahrir Square", 30.0444, 31.2357, "EG", "Muḩāfaz̧at al Qāhirah", "Cairo", 2, 3},
      {"Nairobi's city hall", -1.2864, 36.8172, "KE", "Nairobi Area", "Nairobi", 3, 3},
      {"Cape Town's station", -33.9249, 18.4241, "ZA", "Western Cape", "Cape Town", 2, 2},
      {"Durbar Square", 27.7045, 85.3072, "NP", "Central Region", "Kathmandu", 5.75, 5.75},
      {"Tiananmen", 39.9055, 116.3976, "CN", "Beijing", "Beijing", 8, 8},
      {"Tokyo's central station", 35.6812, 139.7671, "JP", "Tōkyō", "Tokyo", 9, 9},
      {"the Sydney Opera House", -33.8568, 151.2153, "AU", "New South Wales", "Sydney", 11, 10},
      {"Auckland's Sky Tower", -36.8485, 174.7633, "NZ", "Auckland", "Auckland", 13, 12},
      {"San Francisco's Civic Center", 37.7749, -122.4194, "US", "California", "San Francisco", -8, -7},
      {"Phoenix, without daylight saving", 33.4484, -112.0740, "US", "Arizona", "Phoenix", -7, -7},
      {"the Zócalo", 19.4326, -99.1332, "MX", "Mexico City", "Mexico City", -6, -6},
      {"the Praça da Sé", -23.5505, -46.6333, "BR", "São Paulo", "São Paulo", -3, -3},
      {"the Plaza de Armas", -33.4378, -70.6505, "CL", "Santiago Metropolitan", "Santiago", -3, -4},
      {"St. John's harbour", 47.5615, -52.7126, "CA", "Newfoundland and Labrador", "St. John's", -3.5, -2.5},
  };
  for (const Expectation &place : places) expect(place);
}

TEST_F(PlacesOfTheWorld, AtBorders) {
  const std::vector<Expectation> places{
      {"Kehl, across the Rhine", 48.5727, 7.8153, "DE", "Baden-Württemberg", "Kehl", 1, 2},
      {"Strasbourg, on this side", 48.5734, 7.7521, "FR", "Alsace", "Strasbourg", 1, 2},
      {"Tijuana, a kilometre from California", 32.5340, -117.0370, "MX", "Baja California", "Tijuana", -8,
       -7},
      {"Ciudad Juárez", 31.6904, -106.4245, "MX", "Chihuahua", "Ciudad Juárez", -7, -6},
      {"El Paso, in the other Texan time zone", 31.7619, -106.4850, "US", "Texas", "El Paso", -7, -6},
      {"St. Peter's Square", 41.9022, 12.4539, "VA", std::nullopt, "Vatican City", 1, 2},
      {"Derry, where Ireland is near", 54.9966, -7.3086, "GB", "Northern Ireland", "Derry", 0, 1},
      {"Gibraltar", 36.1408, -5.3536, "GI", std::nullopt, "Gibraltar", 1, 2},
      {"Ceuta, on the other continent", 35.8894, -5.3213, "ES", "Ceuta", "Ceuta", 1, 2},
  };
  for (const Expectation &place : places) expect(place);
}

TEST_F(PlacesOfTheWorld, OnIslandsAndFarFromAnywhere) {
  const std::vector<Expectation> places{
      {"Jamestown, St. Helena", -15.9251, -5.7180, "SH", "Saint Helena", "Jamestown", 0, 0},
      {"Funchal", 32.6500, -16.9080, "PT", "Madeira", "Funchal", 0, 1},
      {"Apia, west of the date line since 2011", -13.8333, -171.7667, "WS", "Tuamasaga", "Apia", 13, 13},
      {"Suva", -18.1416, 178.4419, "FJ", "Central", "Suva", 12, 12},
      {"Longyearbyen", 78.2232, 15.6267, "SJ", "Svalbard", "Longyearbyen", 1, 2},
      {"Nuuk, a time zone renamed and moved", 64.1814, -51.6941, "GL", "Sermersooq", "Nuuk", -2, -1},
      {"Punta Arenas, a time zone split off", -53.1638, -70.9171, "CL", "Magallanes", "Punta Arenas", -3, -3},
      {"Lhasa, in the data in Xinjiang's zone", 29.65, 91.1, "CN", "Tibet Autonomous Region", "Lhasa", 8, 8},
  };
  for (const Expectation &place : places) expect(place);
}

// The nearest city's centre decides, not where cities end: the price of a table of points.
TEST_F(PlacesOfTheWorld, WhereASmallerCitysCentreIsNearer) {
  expect({"the Eiffel Tower", 48.8584, 2.2945, "FR", "Île-de-France", "Neuilly-sur-Seine", 1, 2});
  expect({"Windsor's riverfront", 42.3149, -83.0364, "US", "Michigan", "Detroit", -5, -4});
}

TEST_F(PlacesOfTheWorld, NoneInTheMiddleOfNowhere) {
  const std::vector<Nowhere> positions{
      {"the Atlantic", 0, -30},
      {"the origin", 0, 0},
      {"the point farthest from all land", -48.8767, -123.3933},
      {"the North Pole", 90, 0},
      {"the South Pole", -90, 0},
      {"the date line at the equator, from the east", 0, 180},
      {"the date line at the equator, from the west", 0, -180},
      {"Chukotka, at the date line", 66.5, -179.9},
      {"the Siberian taiga", 62, 95},
      {"Nevada's desert", 39.5, -116.9},
  };
  for (const Nowhere &position : positions) {
    EXPECT_TRUE(placemarksAt(*geocoder_, position.latitude, position.longitude).empty()) << position.where;
  }
}

}  // namespace
}  // namespace kx
