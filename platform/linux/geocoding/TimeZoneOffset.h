#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kx {

/// `secondsFromGMT` of an IANA time zone, seconds east of Greenwich, at a point in time (seconds since
/// 1970-01-01 00:00 UTC). Absent when the system does not know the zone. Reads the zone's file.
std::optional<std::int64_t> secondsFromGMT(const std::string &timeZone, double at);

}  // namespace kx
