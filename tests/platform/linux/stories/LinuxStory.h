#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

#include "tools/explore/Story.h"

namespace kx {

/// This machine lets no story have a network of its own; why, it says.
struct NoNetwork : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// How a story went.
struct StoryEnd {
  std::optional<std::string> broken;  ///< the promise that was broken first
  std::string log;                    ///< what the library logged
  std::size_t threads = 0;            ///< at the end, when nobody has anything to do
  std::size_t descriptors = 0;        ///< likewise
};

/// Plays a story on the Linux device, once in a process: the whole library with its real threads, a service
/// by real TLS, the system's services on a real bus, and a network of the process's own. Only the time is
/// virtual.
///
/// Some of what happens on other devices does not on Linux, and is left out: nobody suspends a process, a
/// drag keeps no timer from firing, the host says once whether it may work in the background, GeoClue knows
/// no pause, and nobody but a sleeping system lets background tasks expire.
///
/// Throws NoNetwork.
StoryEnd playOnLinux(const Story &story);

}  // namespace kx
