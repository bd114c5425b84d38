#include "tools/places/TimeZoneChanges.h"

#include <algorithm>
#include <sstream>

#include "tools/places/InputLines.h"

namespace kx::places {

namespace {

bool isSelector(const std::string &text) {
  const bool isNumber =
      std::all_of(text.begin(), text.end(), [](char digit) { return digit >= '0' && digit <= '9'; });
  const bool isRegion = text.size() >= 4 && isCountryCode(text.substr(0, 2)) && text[2] == '.';
  return text == "*" || isNumber || isRegion;
}

}  // namespace

std::vector<TimeZoneChange> readTimeZoneChanges(std::istream &input, const std::string &fileName) {
  InputLines lines(input, fileName);
  std::vector<TimeZoneChange> changes;
  while (lines.next()) {
    std::istringstream words(lines.line().substr(0, lines.line().find('#')));
    TimeZoneChange change;
    std::string more;
    if (!(words >> change.whose >> change.from >> change.to) || words >> more) {
      lines.fail("this is no selector and two time zones");
    }
    if (!isSelector(change.whose)) lines.fail("this selects no place: \"" + change.whose + "\"");
    for (const std::string &zone : {change.from, change.to}) {
      if (!isTimeZone(zone)) lines.fail("this is no time zone: \"" + zone + "\"");
    }
    changes.push_back(change);
  }
  return changes;
}

void applyTimeZoneChanges(const std::vector<TimeZoneChange> &changes, std::vector<City> &cities) {
  for (City &city : cities) {
    const auto fits = [&city](const TimeZoneChange &change) {
      return change.from == city.timeZone &&
             (change.whose == "*" || change.whose == city.region || change.whose == std::to_string(city.id));
    };
    const auto change = std::find_if(changes.begin(), changes.end(), fits);
    if (change != changes.end()) city.timeZone = change->to;
  }
}

}  // namespace kx::places
