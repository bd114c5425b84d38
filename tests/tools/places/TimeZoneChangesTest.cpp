#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tools/places/InputLines.h"
#include "tools/places/TimeZoneChanges.h"

namespace kx::places {
namespace {

std::vector<TimeZoneChange> changesIn(const std::string &text) {
  std::istringstream input(text);
  return readTimeZoneChanges(input, "changes");
}

/// The time zone of place 7 in RU.04, in the zone "Asia/Omsk", after these changes.
std::string zoneAfter(const std::string &changes) {
  std::vector<City> cities{{7, "City", 0, 0, "PPL", "RU", "RU.04", 20000, "Asia/Omsk"}};
  applyTimeZoneChanges(changesIn(changes), cities);
  return cities[0].timeZone;
}

TEST(TimeZoneChanges, ApplyToEveryPlaceARegionOrOnePlace) {
  EXPECT_EQ(zoneAfter("* Asia/Omsk Asia/Barnaul\n"), "Asia/Barnaul");
  EXPECT_EQ(zoneAfter("RU.04 Asia/Omsk Asia/Barnaul  # Altai\n"), "Asia/Barnaul");
  EXPECT_EQ(zoneAfter("7 Asia/Omsk Asia/Barnaul\n"), "Asia/Barnaul");
}

TEST(TimeZoneChanges, LeaveOtherPlacesAndZonesAlone) {
  EXPECT_EQ(zoneAfter("RU.03 Asia/Omsk Asia/Barnaul\n"), "Asia/Omsk");
  EXPECT_EQ(zoneAfter("70 Asia/Omsk Asia/Barnaul\n"), "Asia/Omsk");
  EXPECT_EQ(zoneAfter("* Asia/Tomsk Asia/Barnaul\n"), "Asia/Omsk");
}

TEST(TimeZoneChanges, OnlyTheFirstThatFitsCounts) {
  EXPECT_EQ(zoneAfter("* Asia/Omsk Asia/Barnaul\n* Asia/Omsk Asia/Tomsk\n* Asia/Barnaul Asia/Tomsk\n"),
            "Asia/Barnaul");
}

TEST(TimeZoneChanges, AreRefusedWhenMalformed) {
  for (const char *line : {"* Asia/Omsk", "* Asia/Omsk Asia/Tomsk Asia/Barnaul", "ru.04 Asia/Omsk Asia/Tomsk",
                           "RU Asia/Omsk Asia/Tomsk", "* /Omsk Asia/Tomsk", "* Asia/Omsk ../Tomsk"}) {
    EXPECT_THROW(changesIn(line), MalformedInput) << line;
  }
}

}  // namespace
}  // namespace kx::places
