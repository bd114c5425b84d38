#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/fleet/FleetScenario.h"
#include "tools/fleet/FleetTimeline.h"

namespace kx::fleet {

/// What a service sees of a fleet, and what it would see if nothing special happened.
struct Forecast {
  FleetScenario scenario;
  std::vector<FleetSecond> seconds;
  std::vector<FleetSecond> ordinary;  ///< of the same users; empty where the scenario has nothing special
};

Forecast forecastOf(const FleetScenario &scenario);

/// Something that happens to the fleet, in seconds of the day, and for how long its consequences are looked
/// for: until the next one begins.
struct Disturbance {
  std::string what;
  double from;
  double to;
  double until;
};
std::vector<Disturbance> disturbancesOf(const FleetScenario &scenario);

/// What a disturbance does to one number of the seconds.
struct Effect {
  double most = 0;             ///< in a second
  std::size_t mostAt = 0;      ///< that second
  double ordinaryMost = 0;     ///< of the same time without it
  std::size_t aboveUntil = 0;  ///< the end of the last minute that clearly has more than the ordinary one
  double more = 0;             ///< in all, than ordinary
};
/// `valueOf`: of a `FleetSecond`.
template <class ValueOf>
Effect effectOf(const Forecast &forecast, const Disturbance &disturbance, ValueOf valueOf) {
  constexpr double clearly = 1.1;
  constexpr double fewInAMinute = 5;
  constexpr std::size_t minute = 60;
  Effect effect;
  const auto begin = static_cast<std::size_t>(disturbance.from);
  const auto end = std::min(static_cast<std::size_t>(disturbance.until), forecast.seconds.size());
  effect.aboveUntil = begin;
  double inMinute = 0;
  double ordinaryInMinute = 0;
  for (std::size_t i = begin; i < end; ++i) {
    const auto value = static_cast<double>(valueOf(forecast.seconds[i]));
    const auto ordinary = static_cast<double>(valueOf(forecast.ordinary[i]));
    if (value > effect.most) {
      effect.most = value;
      effect.mostAt = i;
    }
    effect.ordinaryMost = std::max(effect.ordinaryMost, ordinary);
    effect.more += value - ordinary;
    inMinute += value;
    ordinaryInMinute += ordinary;
    if ((i - begin) % minute != minute - 1) continue;
    if (inMinute > ordinaryInMinute * clearly + fewInAMinute) effect.aboveUntil = i + 1;
    inMinute = ordinaryInMinute = 0;
  }
  return effect;
}

/// "12:00:30"
std::string timeText(double seconds);
/// "1,234,567", and below a hundred with two digits: "12", "1.2"
std::string numberText(double number);

/// For people.
std::string tableOf(const Forecast &forecast);
/// For programs: a line for each `step` seconds; counts are sums, what is open is a mean.
std::string csvOf(const Forecast &forecast, std::size_t step);

}  // namespace kx::fleet
