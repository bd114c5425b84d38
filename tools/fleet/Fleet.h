#pragma once

#include <cstdint>
#include <vector>

#include "tools/fleet/EventWheel.h"
#include "tools/fleet/FleetDevice.h"
#include "tools/fleet/FleetScenario.h"
#include "tools/fleet/FleetService.h"
#include "tools/fleet/FleetTimeline.h"
#include "tools/fleet/FleetUsers.h"

namespace kx::fleet {

/// All devices of a scenario, from before its day begins to its end, on virtual time.
class Fleet : private Surroundings {
 public:
  explicit Fleet(const FleetScenario &scenario);

  /// What the service sees, second by second. To be called once.
  std::vector<FleetSecond> live();

 private:
  struct Member {
    FleetDevice device;
    Time connectionUntil = never;  ///< it is kept, once it is no longer in use
    std::uint16_t session = 0;     ///< the latest
    bool isRunning = false;
  };

  void happens(const EventWheel::Event &event, Time now);
  void beginSession(Time now, bool newProcess);
  void endSession(Time now);
  void scheduleForSession(Time at, Happening happening);
  void isSent(Time now, Time answeredAfter);

  void schedule(Time at, Phase phase, Happening happening) override;
  Answer login(Time now) override;
  Answer message(Time now, Time tokenIssuedAt) override;
  void reportIsLost(Time now, Lost why) override;

  const FleetScenario scenario_;
  const Time begins_;
  const Time connectionKept_;
  FleetUsers users_;
  FleetService service_;
  FleetTimeline timeline_;
  EventWheel wheel_;
  std::vector<Member> members_;
  std::uint32_t current_ = 0;  ///< to whom something happens
};

}  // namespace kx::fleet
