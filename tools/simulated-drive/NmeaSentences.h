#pragma once

#include <ctime>
#include <string>

#include "tools/simulated-drive/Track.h"

namespace kx::drive {

/// What a receiver says of a fix: the sentences RMC and GGA of NMEA 0183, each with its checksum and line
/// end.
std::string nmeaSentences(const Fix &fix, double altitude, std::time_t time);

}  // namespace kx::drive
