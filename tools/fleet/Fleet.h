#pragma once

#include <vector>

#include "tools/fleet/FleetLives.h"
#include "tools/fleet/FleetService.h"
#include "tools/fleet/FleetTimeline.h"

namespace kx::fleet {

/// The fleet and the scenario's service, on virtual time.
class Fleet : private FleetLives {
 public:
  explicit Fleet(const FleetScenario &scenario);

  /// What the service sees, second by second. To be called once.
  std::vector<FleetSecond> live();

 private:
  void isSent(Time now, Time answeredAfter);

  Answer login(Time now) override;
  Answer message(Time now, Time tokenIssuedAt) override;
  void reportIsLost(Time now, Lost why) override;

  const Time connectionKept_;
  FleetService service_;
  FleetTimeline timeline_;
  std::vector<Time> connectionsUntil_;  ///< of each device: it is kept, once it is no longer in use
};

}  // namespace kx::fleet
