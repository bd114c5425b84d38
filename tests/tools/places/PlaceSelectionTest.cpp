#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/places/PlaceSelection.h"

namespace kx::places {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

City city(const std::string &name, const std::string &feature, std::uint64_t population,
          std::int32_t latitude = 0, std::int32_t longitude = 0) {
  return {1, name, latitude, longitude, feature, "DE", "DE.01", population, "Europe/Berlin"};
}

std::vector<std::string> selectedOf(const std::vector<City> &cities) {
  std::vector<std::string> names;
  for (const City &place : selectPlaces(cities)) names.push_back(place.name);
  return names;
}

TEST(PlaceSelection, GoesFromSouthToNorth) {
  EXPECT_THAT(selectedOf({city("north", "PPL", 20000, 100), city("south", "PPL", 20000, -100)}),
              ElementsAre("south", "north"));
}

TEST(PlaceSelection, LeavesOutPlacesOfThePast) {
  for (const char *feature : {"PPLQ", "PPLH", "PPLCH", "PPLW"}) {
    EXPECT_THAT(selectedOf({city("past", feature, 20000)}), IsEmpty()) << feature;
  }
}

TEST(PlaceSelection, LeavesOutPlacesWithoutInhabitantsExceptCapitals) {
  EXPECT_THAT(selectedOf({city("ministry", "PPLG", 0), city("capital", "PPLC", 0, 10)}),
              ElementsAre("capital"));
}

TEST(PlaceSelection, LeavesOutSectionsOfACity) {
  // 22 km from each other.
  EXPECT_THAT(selectedOf({city("city", "PPL", 50000), city("section", "PPLX", 100000, 20000)}),
              ElementsAre("city"));
}

TEST(PlaceSelection, KeepsSectionsThatNoCityHolds) {
  EXPECT_THAT(selectedOf({city("section", "PPLX", 100000), city("small", "PPL", 49999, 20000)}),
              ElementsAre("section", "small"));
  EXPECT_THAT(selectedOf({city("section", "PPLX", 100000), city("far", "PPL", 500000, 22600)}),
              ElementsAre("section", "far"));
  EXPECT_THAT(selectedOf({city("section", "PPLX", 100000), city("other", "PPLX", 500000, 10)}),
              ElementsAre("section", "other"));
  City foreign = city("foreign", "PPL", 500000, 10);
  foreign.country = "FR";
  EXPECT_THAT(selectedOf({city("section", "PPLX", 100000), foreign}), ElementsAre("section", "foreign"));
}

TEST(PlaceSelection, FindsTheCityOfASectionAcrossTheDateLine) {
  EXPECT_THAT(
      selectedOf({city("city", "PPL", 50000, 0, 17999000), city("section", "PPLX", 20000, 0, -17999000)}),
      ElementsAre("city"));
}

TEST(PlaceSelection, KeepsTheLargestOfSeveralPlacesAtOnePosition) {
  EXPECT_THAT(selectedOf({city("small", "PPL", 20000), city("large", "PPL", 30000)}), ElementsAre("large"));
}

}  // namespace
}  // namespace kx::places
