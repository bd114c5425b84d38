#include "tools/fleet/FleetTimeline.h"

#include <algorithm>
#include <utility>

namespace kx::fleet {

void FleetTimeline::isOpen(Time from, Time length, float FleetSecond::*partly, std::int32_t Delta::*wholly) {
  const auto end = begins_ + static_cast<Time>(seconds_.size()) * 1000;
  const Time begin = std::max(from, begins_);
  const Time last = std::min(from + length, end);
  if (begin >= last) return;
  const std::size_t first = indexOf(begin);
  const std::size_t final = indexOf(last);
  const auto partOf = [this](Time time) { return static_cast<float>((time - begins_) % 1000) / 1000; };
  if (first == final) {
    seconds_[first].*partly += partOf(last) - partOf(begin);
    return;
  }
  seconds_[first].*partly += 1 - partOf(begin);
  if (final < seconds_.size()) seconds_[final].*partly += partOf(last);
  ++(deltas_[first + 1].*wholly);
  --(deltas_[final].*wholly);
}

std::vector<FleetSecond> FleetTimeline::seconds() {
  std::int64_t requests = 0;
  std::int64_t connections = 0;
  for (std::size_t i = 0; i < seconds_.size(); ++i) {
    seconds_[i].openRequests += static_cast<float>(requests += deltas_[i].requests);
    seconds_[i].openConnections += static_cast<float>(connections += deltas_[i].connections);
  }
  return std::move(seconds_);
}

}  // namespace kx::fleet
