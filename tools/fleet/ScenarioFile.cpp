#include "tools/fleet/ScenarioFile.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/fleet/ScenarioMembers.h"

namespace kx::fleet {

namespace {

constexpr std::size_t longestFile = 1'000'000;  // bytes
constexpr std::size_t longestList = 1000;
constexpr std::size_t mostUpdates = 24;  // each concerns every device
constexpr unsigned mostBases = 8;
constexpr std::uint32_t mostDevices = 50'000'000;
constexpr double longest = 20 * 86'400;  // seconds; what milliseconds of 31 bits hold, and delays after it
constexpr double most = 1e9;             // of anything else

void readQuantiles(Members &members, const char *name, Quantiles &quantiles, double longestLength) {
  const Json *const value = members.find(name);
  if (value == nullptr) return;
  const std::string place = members.placeOf(name);
  const auto lengthFrom = [longestLength](const Json &length, const std::string &where) {
    return secondsFrom(length, where, &secondsOfLength, longestLength);
  };
  if (value->is_string()) {
    quantiles = Quantiles(lengthFrom(*value, place));
    return;
  }
  const char *const wanted =
      "a length of time is wanted here, or an object like {\"0%\": \"1 s\", \"50%\": \"1 min\", \"100%\": "
      "\"1 h\"}, "
      "from 0% to 100%, that does not fall";
  if (!value->is_object()) refuse(place, wanted);
  std::map<double, double> points;
  for (const auto &[percent, length] : value->items()) {
    if (percent.empty()) refuse(place, wanted);
    const auto number =
        percent.back() == '%' ? plainNumber(percent.substr(0, percent.size() - 1)) : std::nullopt;
    if (!number || *number > 100) refuse(place, wanted);
    points[*number / 100] = lengthFrom(length, std::string(place).append(".").append(percent));
  }
  if (points.size() < 2 || points.begin()->first != 0 || points.rbegin()->first != 1) refuse(place, wanted);
  std::vector<Quantiles::Point> list;
  for (const auto &[share, seconds] : points) {
    if (!list.empty() && seconds < list.back().value) refuse(place, wanted);
    list.push_back({share, seconds});
  }
  quantiles = Quantiles(std::move(list));
}

void readUse(const Json &json, const std::string &place, FleetScenario::Use &use) {
  Members members(json, place);
  members.number("sessionsPerDay", use.sessionsPerDay, 0.01, 1000);
  readQuantiles(members, "sessionLength", use.sessionLength, 86'400);
  if (members.find("hours") != nullptr) {
    std::vector<double> hours;
    members.list("hours", 24, [&hours](const Json &element, const std::string &where) {
      hours.push_back(numberFrom(element, where, 0, most));
    });
    double sum = 0;
    for (const double share : hours) sum += share;
    if (hours.size() != 24 || sum <= 0)
      refuse(members.placeOf("hours"), "24 numbers are wanted here, not all of them 0");
    std::copy(hours.begin(), hours.end(), use.hours.begin());
  }
  if (members.find("zones") != nullptr) {
    use.zones.clear();
    double sum = 0;
    members.list("zones", longestList, [&](const Json &element, const std::string &where) {
      Members zone(element, where);
      FleetScenario::Zone read;
      zone.share("share", read.share);
      zone.number("hoursAhead", read.hoursAhead, -14, 14);
      zone.end();
      sum += read.share;
      use.zones.push_back(read);
    });
    if (std::abs(sum - 1) > 1e-6) refuse(members.placeOf("zones"), "shares that add up to 1 are wanted here");
  }
  members.share("newProcess", use.newProcess);
  members.length("suspendedAfter", use.suspendedAfter);
  members.share("withoutIdentifier", use.withoutIdentifier);
  members.end();
}

FleetScenario::Update updateFrom(const Json &json, const std::string &place) {
  FleetScenario::Update update;
  Members members(json, place);
  members.timeOfDay("at", update.at);
  members.length("within", update.within);
  members.share("share", update.share);
  members.end();
  return update;
}

FleetScenario::Outage outageFrom(const Json &json, const std::string &place) {
  FleetScenario::Outage outage;
  Members members(json, place);
  members.timeOfDay("at", outage.at);
  members.length("length", outage.length);
  members.flag("silent", outage.silent);
  std::string of = "everything";
  members.text("of", of);
  const std::map<std::string, FleetScenario::Outage::Of> all{
      {"everything", FleetScenario::Outage::Of::everything},
      {"logins", FleetScenario::Outage::Of::logins},
      {"messages", FleetScenario::Outage::Of::messages}};
  const auto found = all.find(of);
  if (found == all.end())
    refuse(members.placeOf("of"), R"("everything", "logins" or "messages" is wanted here)");
  outage.of = found->second;
  members.end();
  return outage;
}

FleetScenario::Capacity capacityFrom(const Json &json, const std::string &place) {
  FleetScenario::Capacity capacity;
  Members members(json, place);
  if (members.find("messagesPerSecond") == nullptr) refuse(place, "\"messagesPerSecond\" is wanted here");
  members.number("messagesPerSecond", capacity.perSecond, 0.001, most);
  members.number("loginCost", capacity.loginCost, 0, 1000);
  members.length("shedLoginsAbove", capacity.shedLoginsAbove);
  members.length("shedMessagesAbove", capacity.shedMessagesAbove);
  members.length("spreadShedLogins", capacity.spreadShedLogins);
  members.end();
  return capacity;
}

void readService(const Json &json, const std::string &place, FleetScenario::Service &service) {
  Members members(json, place);
  readQuantiles(members, "latency", service.latency, 60);
  members.length("tokenLife", service.tokenLife, longest);
  members.share("tokenLifeSpread", service.tokenLifeSpread);
  members.list("tokensRefused", longestList, [&service](const Json &element, const std::string &where) {
    service.refusals.push_back(secondsFrom(element, where, &secondsOfDay, aDay));
  });
  members.list("outages", longestList, [&service](const Json &element, const std::string &where) {
    service.outages.push_back(outageFrom(element, where));
  });
  if (const Json *capacity = members.find("capacity"))
    service.capacity = capacityFrom(*capacity, members.placeOf("capacity"));
  members.end();
}

void readBytes(const Json &json, const std::string &place, FleetScenario::Bytes &bytes) {
  Members members(json, place);
  members.number("loginUp", bytes.loginUp, 0, most);
  members.number("loginDown", bytes.loginDown, 0, most);
  members.number("messageUp", bytes.messageUp, 0, most);
  members.number("messageDown", bytes.messageDown, 0, most);
  members.number("connectionUp", bytes.connectionUp, 0, most);
  members.number("connectionDown", bytes.connectionDown, 0, most);
  members.end();
}

FleetScenario scenarioFrom(const Json &json, const std::string &file) {
  FleetScenario scenario;
  Members members(json, file + ": ");
  members.text("title", scenario.title);
  members.find("basis");  // it has been read
  members.whole<std::uint32_t>("devices", scenario.devices, 1, mostDevices);
  members.whole<std::uint64_t>("seed", scenario.seed, 0, 1'000'000'000);
  members.length("length", scenario.length, longest);
  members.length("before", scenario.before, longest);
  if (scenario.length < 60 || scenario.length + scenario.before > longest)
    refuse(members.placeOf("length"), "a minute at least, and with \"before\" 20 days at most");
  scenario.length = std::floor(scenario.length);
  if (const Json *use = members.find("use")) readUse(*use, members.placeOf("use"), scenario.use);
  members.list("updates", mostUpdates, [&scenario](const Json &element, const std::string &where) {
    scenario.updates.push_back(updateFrom(element, where));
  });
  if (const Json *service = members.find("service"))
    readService(*service, members.placeOf("service"), scenario.service);
  if (const Json *bytes = members.find("bytes")) readBytes(*bytes, members.placeOf("bytes"), scenario.bytes);
  members.length("connectionKept", scenario.connectionKept);
  members.end();
  return scenario;
}

/// The file's own text, over that of its basis.
Json readFile(const std::string &file, unsigned basesLeft) {
  std::ostringstream contents;
  std::ifstream stream(file, std::ios::binary);
  contents << stream.rdbuf();
  if (!stream.is_open() || stream.bad()) refuse(file, "cannot be read");
  const std::string text = contents.str();
  if (text.size() > longestFile) refuse(file, "is too long");
  Json json;
  try {
    json = Json::parse(text, nullptr, true, /*ignore_comments=*/true);
  } catch (const Json::exception &error) {
    refuse(file, std::string("is no JSON: ") + error.what());
  }
  if (!json.is_object()) refuse(file, "an object is wanted here");
  const auto basis = json.find("basis");
  if (basis == json.end()) return json;
  if (!basis->is_string()) refuse(file + ": basis", "the name of another file is wanted here");
  if (basesLeft == 0) refuse(file + ": basis", "too many files that stand on each other");
  const std::size_t slash = file.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : file.substr(0, slash + 1);
  Json whole = readFile(folder + basis->get<std::string>(), basesLeft - 1);
  whole.merge_patch(json);
  return whole;
}

}  // namespace

double secondsOfDay(const std::string &text) {
  constexpr double greatest[] = {24, 59, 59};
  double seconds = 0;
  std::size_t parts = 0;
  bool isTime = true;
  std::istringstream stream(text + ":");
  for (std::string part; std::getline(stream, part, ':'); ++parts) {
    const bool isNumber = !part.empty() && part.size() <= 2 && part.find('.') == std::string::npos;
    const auto number = isNumber && parts < 3 ? plainNumber(part) : std::nullopt;
    isTime = isTime && number && *number <= greatest[parts];
    seconds = seconds * 60 + number.value_or(0);
  }
  if (!isTime || parts < 2) throw ScenarioError("a time of day like \"12:00\" is wanted here");
  return parts == 2 ? seconds * 60 : seconds;
}

double secondsOfLength(const std::string &text) {
  const std::map<std::string, double> units{{"ms", 0.001}, {"s", 1}, {"min", 60}, {"h", 3600}, {"d", 86'400}};
  const std::size_t end = std::min(text.find_first_not_of("0123456789."), text.size());
  const auto number = plainNumber(text.substr(0, end));
  const std::size_t unit = std::min(text.find_first_not_of(' ', end), text.size());
  const auto found = units.find(text.substr(unit));
  if (!number || found == units.end()) throw ScenarioError("a length of time like \"10 min\" is wanted here");
  return *number * found->second;
}

FleetScenario scenarioFromFile(const std::string &file) {
  return scenarioFrom(readFile(file, mostBases), file);
}

}  // namespace kx::fleet
