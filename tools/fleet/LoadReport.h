#pragma once

#include <string>
#include <vector>

#include "tools/fleet/LoadOptions.h"
#include "tools/fleet/LoadStatistics.h"

namespace kx::fleet {

/// What a load was, and what has come of it.
struct LoadReport {
  std::string title;  ///< the scenario's
  std::uint32_t devices = 0;
  std::vector<std::string> services;
  double from = 0;  ///< seconds of the scenario's day
  double pace = 1;
  double length = 0;      ///< seconds
  bool wasEnded = false;  ///< by its user, before its time
  LoadStatistics statistics;
  std::vector<LoadThreshold> thresholds;
};

/// Whether a bound is kept, and what is to be compared with it: seconds, or a share.
double measuredBy(const LoadReport &report, const LoadThreshold &threshold);
bool isKept(const LoadReport &report, const LoadThreshold &threshold);

/// "85 ms", "1.2 s".
std::string durationText(double seconds);

/// For people.
std::string textOf(const LoadReport &report);
/// For programs. Times are in seconds.
std::string jsonOf(const LoadReport &report);
/// A picture (SVG): what was sent, answered and failed, and how long answers took.
std::string plotOf(const LoadReport &report);

}  // namespace kx::fleet
