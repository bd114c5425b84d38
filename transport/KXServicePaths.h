#pragma once

#include <optional>
#include <string>

namespace kx {

// The service's paths are process-wide variables that the host can reach. What they are for the host, a C
// string or an NSString, its face of the library decides, and defines these two. They are read at each use;
// the host may set a variable, or clear it, only while nothing of the library runs.

/// `kxPublisherApiPathGetToken`: the path of the login endpoint; absent when the host has cleared it.
std::optional<std::string> apiPathGetToken();

/// `kxPublisherFeedPathLogData`: the path of the message endpoint; absent when the host has cleared it.
std::optional<std::string> feedPathLogData();

}  // namespace kx
