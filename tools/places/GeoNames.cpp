#include "tools/places/GeoNames.h"

#include <charconv>
#include <cmath>
#include <optional>

#include "platform/linux/geocoding/PlaceTableFormat.h"
#include "tools/places/InputLines.h"

namespace kx::places {

namespace {

/// All of `text` as a number; absent when it is none, or one that does not fit.
template <class Number>
std::optional<Number> number(const std::string &text) {
  Number value{};
  const char *const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return value;
}

template <class Number>
Number wholeNumber(const InputLines &lines, const std::string &what, const std::string &text) {
  const auto value = number<Number>(text);
  if (!value) lines.fail(what + " is no whole number: \"" + text + "\"");
  return *value;
}

std::int32_t coordinate(const InputLines &lines, const std::string &what, const std::string &text,
                        double largest) {
  const auto degrees = number<double>(text);
  if (!degrees || !(std::abs(*degrees) <= largest)) lines.fail(what + " is no such angle: \"" + text + "\"");
  return static_cast<std::int32_t>(std::lround(*degrees * placetable::unitsPerDegree));
}

std::string name(const InputLines &lines, const std::string &text) {
  if (text.empty()) lines.fail("the name is empty");
  if (text.size() > placetable::longestText) lines.fail("the name is too long: \"" + text + "\"");
  return text;
}

bool isDate(const std::string &text) {
  if (text.size() != 10) return false;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const bool dash = index == 4 || index == 7;
    if (dash ? text[index] != '-' : (text[index] < '0' || text[index] > '9')) return false;
  }
  return true;
}

City city(const InputLines &lines, const std::set<std::string> &countries) {
  const auto fields = lines.fields(19);
  City city;
  city.id = wholeNumber<std::uint32_t>(lines, "the number of the place", fields[0]);
  city.name = name(lines, fields[1]);
  city.latitude = coordinate(lines, "the latitude", fields[4], 90);
  city.longitude = coordinate(lines, "the longitude", fields[5], 180);
  if (fields[6] != "P") lines.fail("this is no populated place (class P): \"" + fields[6] + "\"");
  if (fields[7].empty()) lines.fail("the feature code is empty");
  city.feature = fields[7];
  if (countries.count(fields[8]) == 0) lines.fail("there is no such country: \"" + fields[8] + "\"");
  city.country = fields[8];
  city.region = fields[8] + "." + fields[10];
  city.population = wholeNumber<std::uint64_t>(lines, "the population", fields[14]);
  if (!isTimeZone(fields[17])) lines.fail("this is no time zone: \"" + fields[17] + "\"");
  city.timeZone = fields[17];
  // The end of the line: without it, the line is one that was cut off.
  if (!isDate(fields[18])) lines.fail("this is no date: \"" + fields[18] + "\"");
  return city;
}

}  // namespace

std::set<std::string> readCountries(std::istream &input, const std::string &fileName) {
  InputLines lines(input, fileName);
  std::set<std::string> countries;
  while (lines.next()) {
    const std::string code = lines.fields(19)[0];
    if (!isCountryCode(code)) lines.fail("this is no country code: \"" + code + "\"");
    if (!countries.insert(code).second) lines.fail("there is another line for " + code);
  }
  return countries;
}

RegionNames readRegionNames(std::istream &input, const std::string &fileName) {
  InputLines lines(input, fileName);
  RegionNames names;
  while (lines.next()) {
    const auto fields = lines.fields(4);
    const std::string &code = fields[0];
    if (code.size() < 4 || !isCountryCode(code.substr(0, 2)) || code[2] != '.') {
      lines.fail("this is no code of a first-level division: \"" + code + "\"");
    }
    if (names.count(code) != 0) lines.fail("there is another line for " + code);
    names[code] = fields[1].empty() ? fields[1] : name(lines, fields[1]);
  }
  return names;
}

std::vector<City> readCities(std::istream &input, const std::string &fileName,
                             const std::set<std::string> &countries) {
  InputLines lines(input, fileName);
  std::vector<City> cities;
  std::set<std::uint32_t> ids;
  while (lines.next()) {
    cities.push_back(city(lines, countries));
    if (!ids.insert(cities.back().id).second) {
      lines.fail("there is another line for place " + std::to_string(cities.back().id));
    }
  }
  return cities;
}

}  // namespace kx::places
