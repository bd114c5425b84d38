#pragma once

#include <stdexcept>
#include <string>

#include "tools/fleet/FleetScenario.h"

namespace kx::fleet {

/// What is wrong with a scenario's file, for whoever has written it: the file, the place in it, and what is
/// wanted there.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a scenario. The file is JSON, with comments; what it leaves out is as `FleetScenario` has it, or as
/// the file has it that it names as its "basis", by a path from its own folder. docs/scale.md lists its
/// members. Throws `ScenarioError`.
FleetScenario scenarioFromFile(const std::string &file);

/// Seconds of a time of day, "12:00" or "12:00:30", or of a length, "90 s", "10 min", "1.5 h", "250 ms" or "2
/// d"; throws `ScenarioError` with what is wanted instead.
double secondsOfDay(const std::string &text);
double secondsOfLength(const std::string &text);

}  // namespace kx::fleet
