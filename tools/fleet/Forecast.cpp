#include "tools/fleet/Forecast.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "tools/fleet/Fleet.h"

namespace kx::fleet {

namespace {

std::string outageText(const FleetScenario::Outage &outage) {
  constexpr const char *of[] = {"everything", "logins", "messages"};
  return std::string("outage of ") + of[static_cast<std::size_t>(outage.of)] +
         (outage.silent ? ", which is not answered" : ", which fails at once");
}

}  // namespace

Forecast forecastOf(const FleetScenario &scenario) {
  Forecast forecast{scenario, Fleet(scenario).live(), {}};
  if (scenario.isDisturbed()) forecast.ordinary = Fleet(scenario.undisturbed()).live();
  return forecast;
}

std::vector<Disturbance> disturbancesOf(const FleetScenario &scenario) {
  std::vector<Disturbance> all;
  all.reserve(scenario.updates.size() + scenario.service.outages.size() + scenario.service.refusals.size());
  for (const auto &update : scenario.updates)
    all.push_back({"update", update.at, update.at + update.within, scenario.length});
  for (const auto &outage : scenario.service.outages)
    all.push_back({outageText(outage), outage.at, outage.at + outage.length, scenario.length});
  for (const double refusal : scenario.service.refusals)
    all.push_back({"refusal of all tokens", refusal, refusal, scenario.length});
  std::stable_sort(all.begin(), all.end(),
                   [](const auto &left, const auto &right) { return left.from < right.from; });
  for (std::size_t i = 0; i + 1 < all.size(); ++i) {
    // What begins together is looked at together.
    const auto next = std::find_if(all.begin() + static_cast<std::ptrdiff_t>(i), all.end(),
                                   [&](const auto &other) { return other.from > all[i].from; });
    if (next != all.end()) all[i].until = next->from;
  }
  return all;
}

std::string timeText(double seconds) {
  const auto whole = static_cast<long>(seconds);
  char text[40];
  std::snprintf(text, sizeof text, "%02ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
  return text;
}

std::string numberText(double number) {
  char digits[40];
  if (number != 0 && std::abs(number) < 99.5) {
    std::snprintf(digits, sizeof digits, "%.*f", std::abs(number) < 9.95 ? 1 : 0, number);
    return digits;
  }
  std::snprintf(digits, sizeof digits, "%.0f", number);
  std::string text = digits;
  const std::size_t first = text[0] == '-' ? 1 : 0;
  for (std::size_t i = text.size(); i > first + 3;) text.insert(i -= 3, ",");
  return text;
}

std::string csvOf(const Forecast &forecast, std::size_t step) {
  std::string csv =
      "time,logins,loginsFailed,messages,messagesRefused,messagesFailed,reportsWithoutToken,"
      "reportsWithoutIdentifier,connections,openRequests,openConnections,bytesUp,bytesDown,ordinaryLogins,"
      "ordinaryMessages\n";
  const auto &bytes = forecast.scenario.bytes;
  const auto &seconds = forecast.seconds;
  for (std::size_t from = 0; from < seconds.size(); from += step) {
    const std::size_t to = std::min(from + step, seconds.size());
    const auto sum = [from, to](const std::vector<FleetSecond> &of, auto valueOf) {
      double all = 0;
      for (std::size_t i = from; i < to; ++i) all += static_cast<double>(of.empty() ? 0 : valueOf(of[i]));
      return all;
    };
    const auto of = [&](auto FleetSecond::*member) {
      return sum(seconds, [member](const FleetSecond &second) { return second.*member; });
    };
    const auto length = static_cast<double>(to - from);
    const double logins = of(&FleetSecond::logins);
    const double messages = of(&FleetSecond::messages);
    const double connections = of(&FleetSecond::connections);
    const auto &ordinary = forecast.ordinary.empty() ? seconds : forecast.ordinary;
    char line[400];
    std::snprintf(
        line, sizeof line, "%s,%.0f,%.0f,%.0f,%.0f,%.0f,%.0f,%.0f,%.0f,%.2f,%.2f,%.0f,%.0f,%.0f,%.0f\n",
        timeText(static_cast<double>(from)).c_str(), logins, of(&FleetSecond::loginsFailed), messages,
        of(&FleetSecond::messagesRefused), of(&FleetSecond::messagesFailed),
        of(&FleetSecond::reportsWithoutToken), of(&FleetSecond::reportsWithoutIdentifier), connections,
        of(&FleetSecond::openRequests) / length, of(&FleetSecond::openConnections) / length,
        logins * bytes.loginUp + messages * bytes.messageUp + connections * bytes.connectionUp,
        logins * bytes.loginDown + messages * bytes.messageDown + connections * bytes.connectionDown,
        sum(ordinary, [](const FleetSecond &second) { return second.logins; }),
        sum(ordinary, [](const FleetSecond &second) { return second.messages; }));
    csv += line;
  }
  return csv;
}

}  // namespace kx::fleet
