#pragma once

#include <string>

#include "tools/fleet/Forecast.h"

namespace kx::fleet {

/// A picture (SVG) of a part of the day, in seconds of it: logins, messages, open requests and lost reports,
/// one above the other, with what would be ordinary behind them and the time of what happens shaded.
std::string plotOf(const Forecast &forecast, std::size_t from, std::size_t to);

}  // namespace kx::fleet
