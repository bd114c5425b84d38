#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/fleet/DrawnNumbers.h"

namespace kx::fleet {

/// How much the service can do. What comes while it is busy waits, in order.
struct ServiceCapacity {
  double perSecond = 0;  ///< messages
  double loginCost = 1;  ///< of a login, in messages
  /// What would wait longer is answered with a failure at once; absent: everything waits.
  std::optional<double> shedLoginsAbove;
  std::optional<double> shedMessagesAbove;
  /// The answer to a login that is shed comes after a while that is drawn, at most this one.
  double spreadShedLogins = 0;
};

/// What a forecast is made of: how many use the application, how, and what the service answers. Times of day
/// are in seconds since the day's beginning by UTC, others in seconds, too; shares go from 0 to 1.
struct FleetScenario {
  using Capacity = ServiceCapacity;  // declared before, or clang would not see how one is made

  struct Zone {
    double share = 1;
    double hoursAhead = 0;  ///< of UTC
  };
  /// How the application is used.
  struct Use {
    double sessionsPerDay = 6;
    Quantiles sessionLength{{{0, 2}, {0.5, 60}, {0.9, 600}, {1, 5400}}};
    /// How much of it falls into each hour of the user's day, by any measure.
    std::array<double, 24> hours{2, 1, 1, 1, 1, 2, 4, 6, 7, 7, 7, 7, 8, 8, 7, 7, 7, 8, 9, 10, 10, 9, 6, 4};
    std::vector<Zone> zones{{1, 0}};
    double newProcess = 0.4;         ///< share of sessions that begin with a new process
    double suspendedAfter = 5;       ///< seconds in the background until the system suspends the process
    double withoutIdentifier = 0.2;  ///< share of devices
  };
  /// An update after which the application starts anew.
  struct Update {
    double at = 0;
    double within = 0;  ///< the starts are spread evenly over so many seconds
    double share = 1;   ///< of the devices
  };
  struct Outage {
    enum class Of { everything, logins, messages };
    double at = 0;
    double length = 0;
    bool silent = false;  ///< nothing is answered; otherwise a failure is
    Of of = Of::everything;
  };
  struct Service {
    Quantiles latency{{{0, 0.03}, {0.5, 0.08}, {0.99, 0.6}, {1, 2}}};
    std::optional<double> tokenLife;  ///< absent: for ever
    double tokenLifeSpread = 0;       ///< a life is drawn from so much shorter to so much longer
    std::vector<double> refusals;     ///< when all tokens given out so far are refused from then on
    std::vector<Outage> outages;
    std::optional<Capacity> capacity;
  };
  /// Bytes on the network, with everything that carries them.
  struct Bytes {
    double loginUp = 700;
    double loginDown = 350;
    double messageUp = 1000;
    double messageDown = 200;
    double connectionUp = 900;
    double connectionDown = 3600;
  };

  std::string title;
  std::uint32_t devices = 1'000'000;
  std::uint64_t seed = 1;
  double length = 86'400;
  double before = 43'200;  ///< so long the fleet lives before the forecast begins
  Use use;
  std::vector<Update> updates;
  Service service;
  Bytes bytes;
  double connectionKept = 0;  ///< so long a device keeps a connection after an answer, for its next request

  /// Whether something happens to the fleet that does not happen every day.
  bool isDisturbed() const {
    return !updates.empty() || !service.outages.empty() || !service.refusals.empty();
  }
  /// The same day without that.
  FleetScenario undisturbed() const {
    FleetScenario ordinary = *this;
    ordinary.updates.clear();
    ordinary.service.outages.clear();
    ordinary.service.refusals.clear();
    return ordinary;
  }
};

}  // namespace kx::fleet
