#include <vector>

#include "tools/fleet/LoadReport.h"
#include "tools/fleet/TimePlot.h"

namespace kx::fleet {

std::string plotOf(const LoadReport &report) {
  std::vector<LoadSecond> seconds = report.statistics.seconds();
  if (seconds.empty()) seconds.resize(1);  // nothing was planned
  TimePlot plot;
  plot.to = seconds.size();
  plot.head = (report.title.empty() ? "" : report.title + ": ") + std::to_string(report.devices) + " devices";
  const auto panel = [&](const char *title, auto valueOf) {
    plot.panels.push_back(
        {title,
         [&seconds, valueOf](std::size_t second) { return static_cast<double>(valueOf(seconds[second])); },
         nullptr});
  };
  panel("Requests sent, a second", [](const LoadSecond &second) { return second.sent; });
  panel("Answers a second", [](const LoadSecond &second) { return second.answered; });
  panel("Requests failed or shed, a second",
        [](const LoadSecond &second) { return second.failed + second.shed; });
  constexpr double milliseconds = 1000;
  panel("Answered within, median, ms", [](const LoadSecond &second) { return second.median * milliseconds; });
  panel("Answered within, 99 of 100, ms", [](const LoadSecond &second) { return second.p99 * milliseconds; });
  return plot.svg();
}

}  // namespace kx::fleet
