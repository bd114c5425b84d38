#include <gtest/gtest.h>

#include <limits>

#include "platform/linux/location/GeoClueLocation.h"
#include "tests/platform/linux/location/FakeGeoClue.h"

namespace kx {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double unknownAltitude = -std::numeric_limits<double>::max();

/// Takes a floating variant.
std::optional<Location> read(GVariant *properties) {
  g_variant_ref_sink(properties);
  const auto location = locationFromProperties(properties);
  g_variant_unref(properties);
  return location;
}

std::optional<Location> read(double latitude, double longitude, double accuracy, double altitude = 34) {
  return read(FakeGeoClue::properties(latitude, longitude, accuracy, altitude));
}

TEST(GeoClueLocation, HasWhatTheServiceSays) {
  const auto location = read(52.52, -13.405, 4.5, 34.25);
  ASSERT_TRUE(location);
  EXPECT_EQ(location->coordinate.latitude, 52.52);
  EXPECT_EQ(location->coordinate.longitude, -13.405);
  EXPECT_EQ(location->horizontalAccuracy, 4.5);
  EXPECT_EQ(location->altitude, 34.25);
  EXPECT_EQ(location->verticalAccuracy, -1);
}

TEST(GeoClueLocation, AnUnknownAltitudeIsZero) {
  for (const double altitude : {unknownAltitude, notANumber, infinity, -infinity}) {
    const auto location = read(52.52, 13.405, 4.5, altitude);
    ASSERT_TRUE(location) << altitude;
    EXPECT_EQ(location->altitude, 0) << altitude;
    EXPECT_EQ(location->verticalAccuracy, -1) << altitude;
  }
}

TEST(GeoClueLocation, TheEdgesOfTheWorldArePositions) {
  EXPECT_TRUE(read(90, 180, 0));
  EXPECT_TRUE(read(-90, -180, 0));
  EXPECT_TRUE(read(0, 0, 0, -400));
}

TEST(GeoClueLocation, NonsenseIsNoPosition) {
  for (const double nonsense : {notANumber, infinity, -infinity, 1e9, -1e9}) {
    EXPECT_FALSE(read(nonsense, 13, 5)) << nonsense;
    EXPECT_FALSE(read(52, nonsense, 5)) << nonsense;
  }
  EXPECT_FALSE(read(90.001, 13, 5));
  EXPECT_FALSE(read(52, -180.001, 5));
}

TEST(GeoClueLocation, WithoutAnAccuracyThereIsNoPosition) {
  for (const double accuracy : {-1.0, notANumber, infinity, unknownAltitude}) {
    EXPECT_FALSE(read(52, 13, accuracy)) << accuracy;
  }
}

TEST(GeoClueLocation, WrongTypesAreNoPosition) {
  for (const char *const text : {"@a{sv} {}", "{'Latitude': <52.5>, 'Longitude': <13.4>}",
                                 "{'Latitude': <'52.5'>, 'Longitude': <13.4>, 'Accuracy': <5.0>}",
                                 "{'Latitude': <52.5>, 'Longitude': <13>, 'Accuracy': <5.0>}",
                                 "{'Latitude': <52.5>, 'Longitude': <13.4>, 'Accuracy': <@ad []>}"}) {
    EXPECT_FALSE(read(g_variant_new_parsed(text))) << text;
  }
  const auto withoutAltitude = read(g_variant_new_parsed(
      "{'Latitude': <52.5>, 'Longitude': <13.4>, 'Accuracy': <5.0>, 'Altitude': <'?'>}"));
  ASSERT_TRUE(withoutAltitude);
  EXPECT_EQ(withoutAltitude->altitude, 0);
}

TEST(GeoClueLocation, ADistanceFilterIsAThresholdInWholeMetres) {
  EXPECT_EQ(distanceThreshold(10), 10U);
  EXPECT_EQ(distanceThreshold(9.1), 10U);
  EXPECT_EQ(distanceThreshold(0), 0U);
  EXPECT_EQ(distanceThreshold(-1), 0U);
  EXPECT_EQ(distanceThreshold(notANumber), 0U);
  EXPECT_EQ(distanceThreshold(1e300), std::numeric_limits<std::uint32_t>::max());
}

}  // namespace
}  // namespace kx
