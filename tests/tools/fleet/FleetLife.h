#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/fleet/FleetDevice.h"
#include "tools/fleet/FleetScenario.h"

namespace kx::fleet {

/// Milliseconds: a number of seconds that adds up without an error.
constexpr Time grid = 125;

/// What happens to a device from outside.
enum class Act {
  launches,
  entersBackground,
  entersForeground,
  isSuspended,
  isResumed,
  refreshIsDenied,  ///< in the background; it is granted at first
  refreshIsGranted,
};

/// The life of one device and of its service.
struct FleetLife {
  struct Event {
    Time at;
    Act act;
  };
  /// The life of that number; always the same.
  ///
  /// No two things happen at the same millisecond that only chance puts there: then both orders would be
  /// right. What follows from one and the same event does so the more often, as every delay is a multiple of
  /// the grid.
  static FleetLife ofSeed(std::uint64_t seed);
  /// A line an event.
  std::string text() const;

  std::uint64_t seed = 0;
  bool hasUsableIdentifier = true;
  FleetScenario::Service service;
  std::vector<Event> events;  ///< the first is the first start, at 0
  Time end = 0;
};

/// A request at the service.
struct Sent {
  Time at;
  bool isLogin;
  Time token;  ///< of a message: when it was asked for; never for a login

  bool operator==(const Sent &other) const {
    return at == other.at && isLogin == other.isLogin && token == other.token;
  }
  bool operator<(const Sent &other) const;
};

/// What is sent in that life, in order: by the fleet's device, and by the library on the simulated device.
std::vector<Sent> sentByFleet(const FleetLife &life);
std::vector<Sent> sentByLibrary(const FleetLife &life);

/// Both lists, side by side, after the life.
std::string difference(const FleetLife &life);
/// The fewest events and troubles that still make a difference; the life has to make one.
FleetLife shrink(FleetLife life);

}  // namespace kx::fleet
