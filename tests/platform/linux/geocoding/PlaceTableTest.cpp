#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "platform/linux/geocoding/PlaceTable.h"
#include "tests/platform/linux/geocoding/SmallTable.h"

namespace kx {
namespace {

constexpr double anyDistance = 1e9;  // metres

/// The name of the place nearest to a position; "-" when there is none.
std::string nearestName(const std::string &bytes, double latitude, double longitude,
                        double withinMetres = anyDistance) {
  const auto table = PlaceTable::in(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
  if (!table) return "no table";
  const auto place = table->nearest({latitude, longitude}, withinMetres);
  return place ? place->name : "-";
}

TEST(PlaceTable, SaysWhatIsKnownOfAPlace) {
  const std::string bytes = smallTable(
      {placeAt(52.5, 13.4, "Östlich"), placeAt(-33.9, 18.4, "Southern", "ZA", "Africa/Johannesburg")});
  const auto table = PlaceTable::in(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
  ASSERT_TRUE(table);
  const auto east = table->nearest({52, 13}, anyDistance);
  ASSERT_TRUE(east);
  EXPECT_EQ(east->country, "DE");
  EXPECT_EQ(east->region, "Somewhere");
  EXPECT_EQ(east->name, "Östlich");
  EXPECT_EQ(east->timeZone, "Europe/Berlin");
  const auto south = table->nearest({-33, 18}, anyDistance);
  ASSERT_TRUE(south);
  EXPECT_EQ(south->country, "ZA");
  EXPECT_EQ(south->region, std::nullopt);
  EXPECT_EQ(south->name, "Southern");
  EXPECT_EQ(south->timeZone, "Africa/Johannesburg");
}

TEST(PlaceTable, FindsNothingBeyondTheCutOff) {
  const std::string bytes = smallTable({placeAt(0, 0, "Middle")});
  // 50 km are 0.44966 degrees of a great circle.
  for (const double sign : {-1.0, 1.0}) {
    EXPECT_EQ(nearestName(bytes, sign * 0.4496, 0, 50000), "Middle");
    EXPECT_EQ(nearestName(bytes, sign * 0.4497, 0, 50000), "-");
    EXPECT_EQ(nearestName(bytes, 0, sign * 0.4496, 50000), "Middle");
    EXPECT_EQ(nearestName(bytes, 0, sign * 0.4497, 50000), "-");
  }
}

TEST(PlaceTable, MeasuresLongitudesByTheirLatitude) {
  const std::string bytes = smallTable({placeAt(60, 10, "East"), placeAt(60.6, 9, "North")});
  EXPECT_EQ(nearestName(bytes, 60, 9), "East");  // a degree of longitude is half of one of latitude here
}

TEST(PlaceTable, SeesAcrossTheDateLine) {
  const std::string bytes = smallTable({placeAt(10, 179.9, "West of it"), placeAt(10, -170, "East of it")});
  EXPECT_EQ(nearestName(bytes, 10, -179.9, 50000), "West of it");
  EXPECT_EQ(nearestName(bytes, 10, -180, 50000), "West of it");
  EXPECT_EQ(nearestName(bytes, 10, 180, 50000), "West of it");
}

TEST(PlaceTable, SeesAcrossThePoles) {
  const std::string bytes = smallTable({placeAt(89.9, 0, "North"), placeAt(-89.9, 0, "South")});
  EXPECT_EQ(nearestName(bytes, 89.9, 180, 50000), "North");
  EXPECT_EQ(nearestName(bytes, 90, -77, 50000), "North");
  EXPECT_EQ(nearestName(bytes, -89.9, -180, 50000), "South");
  EXPECT_EQ(nearestName(bytes, -90, 120, 50000), "South");
}

TEST(PlaceTable, FindsNothingAtAPositionThatIsNotOnEarth) {
  const std::string bytes = smallTable({placeAt(90, 180, "Corner"), placeAt(0, 0, "Middle")});
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const double wrong : {nan, infinity, -infinity, 180.001, -180.001, 1e300}) {
    EXPECT_EQ(nearestName(bytes, wrong, 0), "-") << wrong;
    EXPECT_EQ(nearestName(bytes, 0, wrong), "-") << wrong;
  }
  EXPECT_EQ(nearestName(bytes, 90.001, 0), "-");
  EXPECT_EQ(nearestName(bytes, -90.001, 0), "-");
}

TEST(PlaceTable, MayHoldNoPlace) {
  EXPECT_EQ(nearestName(smallTable({}), 0, 0), "-");
}

TEST(PlaceTable, FindsThePlaceThatALookAtEachOfThemFinds) {
  struct Point {
    double latitude, longitude, x, y, z;
  };
  std::mt19937 random(1);
  std::uniform_real_distribution<double> unit(-1, 1);
  const auto point = [&] {
    constexpr double radian = 57.29577951308232;
    const double z = std::round(std::sin(unit(random) * 1.5707963) * 1e4) / 1e4;  // denser towards the poles
    const double latitude = std::round(std::asin(z) * radian * 1e5) / 1e5;
    const double longitude = std::round(unit(random) * 180 * 1e5) / 1e5;
    const double circle = std::cos(latitude / radian);
    return Point{latitude, longitude, circle * std::cos(longitude / radian),
                 circle * std::sin(longitude / radian), std::sin(latitude / radian)};
  };
  std::vector<Point> points;
  std::vector<places::City> cities;
  for (int index = 0; index < 300; ++index) {
    points.push_back(point());
    cities.push_back(placeAt(points.back().latitude, points.back().longitude, std::to_string(index)));
  }
  const std::string bytes = smallTable(cities);
  for (int lookup = 0; lookup < 1000; ++lookup) {
    const Point position = point();
    std::size_t nearest = 0;
    double shortest = 5;
    for (std::size_t index = 0; index < points.size(); ++index) {
      const double distance = std::hypot(points[index].x - position.x, points[index].y - position.y,
                                         points[index].z - position.z);
      if (distance >= shortest) continue;
      shortest = distance;
      nearest = index;
    }
    EXPECT_EQ(nearestName(bytes, position.latitude, position.longitude), std::to_string(nearest))
        << position.latitude << ", " << position.longitude;
  }
}

}  // namespace
}  // namespace kx
