#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tools/places/GeoNames.h"
#include "tools/places/InputLines.h"

namespace kx::places {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

const std::vector<std::string> berlin{"2950159",  "Berlin", "Berlin",        "BER,Berliini", "52.52437",
                                      "13.41053", "P",      "PPLC",          "DE",           "",
                                      "16",       "00",     "11000",         "11000000",     "3426354",
                                      "74",       "43",     "Europe/Berlin", "2012-09-19"};

std::string line(const std::vector<std::string> &fields) {
  std::string text;
  for (const std::string &field : fields) text += (text.empty() ? "" : "\t") + field;
  return text + "\n";
}

/// Berlin, of which one field is something else.
std::string berlinWith(std::size_t field, const std::string &value) {
  auto fields = berlin;
  fields.at(field) = value;
  return line(fields);
}

std::vector<City> citiesIn(const std::string &text) {
  std::istringstream input(text);
  return readCities(input, "cities", {"DE"});
}

RegionNames regionsIn(const std::string &text) {
  std::istringstream input(text);
  return readRegionNames(input, "regions");
}

std::set<std::string> countriesIn(const std::string &text) {
  std::istringstream input(text);
  return readCountries(input, "countries");
}

/// What is said of malformed input; "-" when it is none.
template <class Reading>
std::string complaintOf(Reading reading, const std::string &text) {
  try {
    reading(text);
    return "-";
  } catch (const MalformedInput &error) {
    return error.what();
  }
}

TEST(GeoNames, HasCities) {
  const auto cities = citiesIn(line(berlin));
  ASSERT_EQ(cities.size(), 1U);
  EXPECT_EQ(cities[0].id, 2950159U);
  EXPECT_EQ(cities[0].name, "Berlin");
  EXPECT_EQ(cities[0].latitude, 5252437);
  EXPECT_EQ(cities[0].longitude, 1341053);
  EXPECT_EQ(cities[0].feature, "PPLC");
  EXPECT_EQ(cities[0].country, "DE");
  EXPECT_EQ(cities[0].region, "DE.16");
  EXPECT_EQ(cities[0].population, 3426354U);
  EXPECT_EQ(cities[0].timeZone, "Europe/Berlin");
}

TEST(GeoNames, HasNoMalformedCities) {
  const std::vector<std::pair<std::size_t, std::vector<std::string>>> malformed{
      {0, {"", "-1", "12x", "4294967296"}},
      {1, {"", std::string(256, 'x'), "\xff", "a\x01"}},
      {4, {"", "90.1", "-90.1", "nan", "inf", "52,5"}},
      {5, {"", "180.1", "-180.1", "east"}},
      {6, {"", "S"}},
      {7, {""}},
      {8, {"", "FR", "de"}},
      {14, {"", "-5", "1e6"}},
      {17, {"", "/etc/passwd", "../Berlin", "Europe//Berlin", "Europe/Berlin/"}},
      {18, {"", "2012-09", "2012-09-1x"}},
  };
  for (const auto &[field, values] : malformed) {
    for (const std::string &value : values) {
      EXPECT_THAT(complaintOf(citiesIn, berlinWith(field, value)), HasSubstr("cities:1: ")) << value;
    }
  }
}

TEST(GeoNames, SaysWhereALineIsMalformed) {
  auto short_ = berlin;
  short_.pop_back();
  EXPECT_EQ(complaintOf(citiesIn, "# comment\n\n" + line(short_)), "cities:3: there are 18 fields, not 19");
  EXPECT_EQ(complaintOf(citiesIn, line(berlin) + line(berlin)),
            "cities:2: there is another line for place 2950159");
}

TEST(GeoNames, HasNamesOfRegions) {
  EXPECT_THAT(regionsIn("DE.16\tBerlin\tBerlin\t2950157\nSG.00\t\t\t1880251\n"),
              ElementsAre(Pair("DE.16", "Berlin"), Pair("SG.00", "")));
  EXPECT_NE(complaintOf(regionsIn, "DE16\tBerlin\tBerlin\t2950157\n"), "-");
  EXPECT_NE(complaintOf(regionsIn, "DE.16\tBerlin\t2950157\n"), "-");
  EXPECT_NE(complaintOf(regionsIn, "DE.16\ta\ta\t1\nDE.16\tb\tb\t2\n"), "-");
}

TEST(GeoNames, HasCountries) {
  const std::string rest(18, '\t');
  EXPECT_THAT(countriesIn("#ISO\tISO3\nDE" + rest + "\nFR" + rest + "\n"), ElementsAre("DE", "FR"));
  EXPECT_NE(complaintOf(countriesIn, "de" + rest + "\n"), "-");
  EXPECT_NE(complaintOf(countriesIn, "DE\n"), "-");
  EXPECT_NE(complaintOf(countriesIn, "DE" + rest + "\nDE" + rest + "\n"), "-");
}

}  // namespace
}  // namespace kx::places
