#pragma once

#include <string>
#include <vector>

namespace kx::fleet {

/// `kx-fleet forecast`: its exit code.
int runForecast(const std::vector<std::string> &arguments);

}  // namespace kx::fleet
