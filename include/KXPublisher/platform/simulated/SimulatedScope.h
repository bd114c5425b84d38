#pragma once

#include <cstdint>

#include "KXPublisher/platform/simulated/SimulatedPlatform.h"

namespace kx {

/// A simulated device from its switching on to its end, and the library with it: a process can play many, one
/// after the other.
///
///     for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
///       kx::SimulatedScope scope(seed);
///       kx::KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
///       scope.device.advance(600);
///       EXPECT_EQ(scope.device.service.messages().size(), 2u) << "seed " << seed;
///     }
///
/// The library's single instances (the publisher, its providers, the log and so on) are made for this device
/// alone, at their first use, and end with it.
///
/// **What may not be kept**: nothing that comes from the library or the device outlives the scope. A test
/// that still holds the publisher, a provider, the log or another single instance when the scope ends is told
/// so (see `end`); timers, sessions and references into `device` it has to drop by itself; what its own tasks
/// refer to has to outlive the scope. Plain values (a `SimulatedRequest`, a `KXDiagnosis`, text) may be kept.
class KX_EXPORT SimulatedScope {
 public:
  /// Throws `std::logic_error` when the process has another device: a scope that has not ended, one that was
  /// installed for good, or the real one, which the library's use before any scope has chosen. Of a library
  /// that was not compiled for the simulated device, like the one in an app, there is one scope in a process.
  explicit SimulatedScope(std::uint64_t seed = 0);
  /// Ends the device. What `end` throws ends the process, with its text.
  ~SimulatedScope();
  SimulatedScope(const SimulatedScope &) = delete;
  SimulatedScope &operator=(const SimulatedScope &) = delete;

  /// Ends the device before the scope does: what is ready runs to its end, what falls due later is dropped,
  /// and the single instances are released. Throws `std::logic_error` when some of them are still held; the
  /// device is left to them then, and never freed.
  void end();

  SimulatedPlatform &device;

 private:
  bool ended_ = false;
};

}  // namespace kx
