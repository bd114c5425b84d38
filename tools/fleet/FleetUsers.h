#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "tools/fleet/FleetDevice.h"
#include "tools/fleet/FleetScenario.h"

namespace kx::fleet {

/// Who uses the application when. All is drawn for a device and one of its sessions, and depends on nothing
/// else.
class FleetUsers {
 public:
  /// `begins`: the time at which the scenario's day begins.
  FleetUsers(const FleetScenario::Use &use, std::uint64_t seed, Time begins);

  bool hasUsableIdentifier(std::uint32_t device) const;
  /// When the session after that one begins, if it has ended then.
  Time nextSession(std::uint32_t device, std::uint16_t session, Time ended) const;
  Time lengthOf(std::uint32_t device, std::uint16_t session) const;
  bool beginsWithNewProcess(std::uint32_t device, std::uint16_t session) const;

 private:
  double hoursAhead(std::uint32_t device) const;

  const FleetScenario::Use use_;
  const std::uint64_t seed_;
  const Time begins_;
  std::array<double, 25> sessionsBefore_{};  ///< of a day, expected before that hour begins
};

}  // namespace kx::fleet
