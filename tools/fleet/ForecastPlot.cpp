#include "tools/fleet/ForecastPlot.h"

#include "tools/fleet/TimePlot.h"

namespace kx::fleet {

std::string plotOf(const Forecast &forecast, std::size_t from, std::size_t to) {
  TimePlot plot;
  plot.from = from;
  plot.to = to;
  const std::string devices = numberText(forecast.scenario.devices) + " devices";
  plot.head = forecast.scenario.title.empty() ? devices : forecast.scenario.title + ": " + devices;
  for (const Disturbance &disturbance : disturbancesOf(forecast.scenario))
    plot.troubles.push_back({disturbance.from, disturbance.to});
  const auto panel = [&](const char *title, auto valueOf) {
    const auto of = [valueOf](const std::vector<FleetSecond> &seconds) -> TimePlot::ValueOf {
      if (seconds.empty()) return nullptr;
      return
          [&seconds, valueOf](std::size_t second) { return static_cast<double>(valueOf(seconds[second])); };
    };
    plot.panels.push_back({title, of(forecast.seconds), of(forecast.ordinary)});
  };
  panel("Logins a second", [](const FleetSecond &second) { return second.logins; });
  panel("Messages a second", [](const FleetSecond &second) { return second.messages; });
  panel("Open requests", [](const FleetSecond &second) { return second.openRequests; });
  panel("Reports lost for ever, a second", [](const FleetSecond &second) { return second.lost(); });
  return plot.svg();
}

}  // namespace kx::fleet
