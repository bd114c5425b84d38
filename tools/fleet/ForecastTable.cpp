#include <algorithm>
#include <cstdio>
#include <functional>

#include "tools/fleet/Forecast.h"

namespace kx::fleet {

namespace {

using ValueOf = std::function<double(const FleetSecond &)>;

constexpr std::size_t tenMinutes = 600;
constexpr double kilo = 1000;

std::string row(const std::string &name, const std::string &all, const std::string &mean,
                const std::string &most, const std::string &at, const std::string &tenMinutesMean) {
  char line[200];
  std::snprintf(line, sizeof line, "%-24s %16s %12s %12s  %-8s %12s\n", name.c_str(), all.c_str(),
                mean.c_str(), most.c_str(), at.c_str(), tenMinutesMean.c_str());
  return line;
}

/// One number through the day. `isRate`: it adds up.
std::string rowOf(const Forecast &forecast, const char *name, bool isRate, const ValueOf &valueOf) {
  double all = 0;
  double most = 0;
  std::size_t mostAt = 0;
  double inTen = 0;
  double mostInTen = 0;
  const auto &seconds = forecast.seconds;
  for (std::size_t i = 0; i < seconds.size(); ++i) {
    const double value = valueOf(seconds[i]);
    all += value;
    inTen += value;
    if (i >= tenMinutes) inTen -= valueOf(seconds[i - tenMinutes]);
    mostInTen = std::max(mostInTen, inTen);
    if (value <= most) continue;
    most = value;
    mostAt = i;
  }
  const auto length = static_cast<double>(seconds.size());
  const double tenLength = std::min(length, static_cast<double>(tenMinutes));
  return row(name, isRate ? numberText(all) : "", numberText(all / length), numberText(most),
             timeText(static_cast<double>(mostAt)), numberText(mostInTen / tenLength));
}

std::string reportsOf(const Forecast &forecast) {
  double sent = 0;
  double arrived = 0;
  double refused = 0;
  double failed = 0;
  double withoutToken = 0;
  double withoutIdentifier = 0;
  for (const FleetSecond &second : forecast.seconds) {
    sent += second.messages;
    arrived += second.messages - second.messagesRefused - second.messagesFailed;
    refused += second.messagesRefused;
    failed += second.messagesFailed;
    withoutToken += second.reportsWithoutToken;
    withoutIdentifier += second.reportsWithoutIdentifier;
  }
  const double made = sent + withoutToken;
  const auto line = [made](const char *name, double number) {
    char text[200];
    std::snprintf(text, sizeof text, "  %-38s %16s  %6.2f %%\n", name, numberText(number).c_str(),
                  made > 0 ? number / made * 100 : 0);
    return std::string(text);
  };
  return "\nReports of devices with a usable identifier\n" + line("made", made) + line("arrived", arrived) +
         line("lost: made while there was no token", withoutToken) +
         line("lost: the token was refused", refused) + line("lost: the service failed", failed) +
         "Reports of devices without one, which send none\n" + line("made", withoutIdentifier);
}

std::string effectLine(const Forecast &forecast, const Disturbance &disturbance, const char *name,
                       const ValueOf &valueOf) {
  const Effect effect = effectOf(forecast, disturbance, valueOf);
  char line[240];
  std::snprintf(line, sizeof line, "  %-16s at most %s at %s (ordinary %s)", name,
                numberText(effect.most).c_str(), timeText(static_cast<double>(effect.mostAt)).c_str(),
                numberText(effect.ordinaryMost).c_str());
  std::string text = line;
  if (static_cast<double>(effect.aboveUntil) > disturbance.from)
    text += ", more than ordinary until " + timeText(static_cast<double>(effect.aboveUntil));
  return text + "\n";
}

std::string effectsOf(const Forecast &forecast, const Disturbance &disturbance) {
  std::string text = "\n" + timeText(disturbance.from);
  if (disturbance.to > disturbance.from) text += " to " + timeText(disturbance.to);
  text += ", " + disturbance.what + "\n";
  text +=
      effectLine(forecast, disturbance, "logins/s", [](const FleetSecond &second) { return second.logins; });
  text += effectLine(forecast, disturbance, "messages/s",
                     [](const FleetSecond &second) { return second.messages; });
  text += effectLine(forecast, disturbance, "open requests",
                     [](const FleetSecond &second) { return second.openRequests; });
  const auto lost = effectOf(forecast, disturbance,
                             [](const FleetSecond &second) { return static_cast<double>(second.lost()); });
  return text + "  reports lost for ever: " + numberText(lost.more) + " more than ordinary\n";
}

}  // namespace

std::string tableOf(const Forecast &forecast) {
  const FleetScenario &scenario = forecast.scenario;
  char head[160];
  std::snprintf(head, sizeof head, "%s devices, %s from 00:00 UTC, seed %llu\n\n",
                numberText(scenario.devices).c_str(), timeText(scenario.length).c_str(),
                static_cast<unsigned long long>(scenario.seed));
  std::string text = (scenario.title.empty() ? "" : scenario.title + "\n") + head;
  text += row("", "in all", "mean/s", "most in 1 s", "at", "in 10 min/s");
  const auto add = [&](const char *name, bool isRate, const ValueOf &valueOf) {
    text += rowOf(forecast, name, isRate, valueOf);
  };
  const auto &bytes = scenario.bytes;
  add("logins", true, [](const FleetSecond &second) { return second.logins; });
  add("logins that fail", true, [](const FleetSecond &second) { return second.loginsFailed; });
  add("messages", true, [](const FleetSecond &second) { return second.messages; });
  add("new connections", true, [](const FleetSecond &second) { return second.connections; });
  add("kB to the service", true, [&bytes](const FleetSecond &second) {
    return (second.logins * bytes.loginUp + second.messages * bytes.messageUp +
            second.connections * bytes.connectionUp) /
           kilo;
  });
  add("kB from the service", true, [&bytes](const FleetSecond &second) {
    return (second.logins * bytes.loginDown + second.messages * bytes.messageDown +
            second.connections * bytes.connectionDown) /
           kilo;
  });
  add("open requests", false, [](const FleetSecond &second) { return second.openRequests; });
  add("open connections", false, [](const FleetSecond &second) { return second.openConnections; });
  text += reportsOf(forecast);
  for (const Disturbance &disturbance : disturbancesOf(scenario)) text += effectsOf(forecast, disturbance);
  return text;
}

}  // namespace kx::fleet
