#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>
#include <unordered_set>
#include <vector>

#include "tools/collector/Document.h"
#include "tools/collector/MessageValues.h"

namespace kx::collector {

/// What the wire protocol allows in a message, and what a host's developer should look at all the same.
class Warnings {
 public:
  /// About a message that keeps the rules, which has arrived at that time.
  std::vector<std::string> about(const Document &message, std::chrono::system_clock::time_point now) const;
  /// The same, of all but keys that are not in the message reference.
  std::vector<std::string> about(const MessageValues &message,
                                 std::chrono::system_clock::time_point now) const;

  /// A message with that "id" was accepted. The latest 100,000 are remembered.
  void remember(const std::string &eventId);

 private:
  static constexpr std::size_t maximumIds = 100000;

  std::deque<std::string> ids_;  // oldest first
  std::unordered_set<std::string> isKnown_;
};

}  // namespace kx::collector
