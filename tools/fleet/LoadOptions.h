#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kx::fleet {

/// What may not be exceeded: "login.p99=200ms", "message.max=2s", "errors=0.1%", "shed=0%".
struct LoadThreshold {
  enum class Of { logins, messages, errors, shed };

  std::string text;  ///< as it was given
  Of what = Of::errors;
  double share = 1;  ///< of the answers that are no slower, 0 to 1
  double bound = 0;  ///< seconds, or a share

  /// Throws `ScenarioError`.
  static LoadThreshold from(const std::string &text);
};

/// What `kx-fleet load` was started with.
struct LoadOptions {
  std::string scenario;
  std::vector<std::string> services;
  std::vector<std::string> reallyLoaded;
  std::optional<std::string> certificateAuthorityFile;
  std::string apiToken = "demo";
  std::optional<std::string> message;
  std::optional<std::uint32_t> devices;
  double from = 0;       ///< seconds of the scenario's day
  double pace = 1;       ///< of the fleet's time to this machine's
  double duration = 60;  ///< seconds of this machine's time, as the next two are
  double warmUp = 60;
  double grace = 5;
  std::optional<double> rate;  ///< requests a second
  std::optional<std::size_t> connections;
  std::size_t sessions = 20'000;
  std::vector<LoadThreshold> thresholds;
  std::optional<std::string> json;
  std::optional<std::string> plot;
  std::optional<std::string> results;
  bool help = false;

  /// Throws `ScenarioError`.
  static LoadOptions of(const std::vector<std::string> &arguments);
  static const char *helpText();
};

}  // namespace kx::fleet
