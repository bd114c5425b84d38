#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Value.h"

namespace kx::fleet {

/// What the messages of a fleet say: all the same, but for their "id", which is new each time, their
/// "eventTime", which is now, and the device's "ifa".
class LoadMessage {
 public:
  /// One as a phone with all its facts sends it, or the one in the file: JSON, an object or an array with
  /// one, as the library has sent it. Throws `ScenarioError`.
  static LoadMessage usual();
  static LoadMessage fromFile(const std::string &file);

  /// The device's, now.
  Dictionary of(std::uint64_t seed, std::uint32_t device, const std::string &id) const;
  /// `eventTime`: milliseconds since 1970.
  Dictionary with(const std::string &identifier, const std::string &id, std::int64_t eventTime) const;

  /// What a login says of the device, "Linux" and "com.example.Host".
  std::string systemName() const { return textOf("platform"); }
  std::string bundleIdentifier() const { return textOf("bundleId"); }

  /// Another for each device, and always the same.
  static std::string advertisingIdentifier(std::uint64_t seed, std::uint32_t device);
  static std::string newId();

 private:
  explicit LoadMessage(Dictionary pattern) : pattern_(std::move(pattern)) {}
  static LoadMessage fromText(const std::string &text);
  std::string textOf(const char *key) const;

  Dictionary pattern_;
};

}  // namespace kx::fleet
