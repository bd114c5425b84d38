#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

#include "KXPublisher/platform/simulated/SimulatedPlatform.h"

namespace kx {

/// How many tasks were submitted to the queue of that name ("main", "high", "default", "low", "background")
/// since the device's trace has been recorded.
inline std::size_t submissions(const SimulatedPlatform &device, const std::string &queue) {
  const auto &events = device.scheduler.trace.events();
  return static_cast<std::size_t>(std::count_if(events.begin(), events.end(), [&queue](const auto &event) {
    return event.kind == SimulatedTrace::Kind::submits && event.what == queue;
  }));
}

}  // namespace kx
