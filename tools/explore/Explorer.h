#pragma once

#include <functional>
#include <optional>
#include <string>

#include "tools/explore/Story.h"

namespace kx {

class SimulatedPlatform;

/// Plays stories on the simulated device, each with the schedule of its seed, and holds the library against
/// what it promises after every event.
class Explorer {
 public:
  /// Another promise, looked at after every event: what is wrong, or nothing.
  using Promise = std::function<std::optional<std::string>(SimulatedPlatform &)>;

  explicit Explorer(Promise another = nullptr) : another_(std::move(another)) {}

  /// What a story shows to be broken; nothing when all promises are kept. The trace of the threads goes to
  /// `trace` and their picture to `picture`, where they are asked for.
  std::optional<std::string> play(const Story &story, std::string *trace = nullptr,
                                  std::string *picture = nullptr) const;

  /// The fewest events of a story that still break a promise; it has to break one.
  Story shrink(Story story) const;

 private:
  const Promise another_;
};

}  // namespace kx
