#pragma once

#include <cstdint>
#include <vector>

#include "tools/fleet/EventWheel.h"
#include "tools/fleet/FleetDevice.h"
#include "tools/fleet/FleetScenario.h"
#include "tools/fleet/FleetUsers.h"

namespace kx::fleet {

/// All devices of a scenario and what their users do, from before its day begins to its end. What becomes of
/// a request, and when, is for whoever derives from it to say.
class FleetLives : protected Surroundings {
 public:
  explicit FleetLives(const FleetScenario &scenario);

  /// Lets them live up to that time; the next call goes on from there.
  void liveUntil(Time until);

 protected:
  /// The one to whom something happens.
  std::uint32_t current() const { return current_; }
  std::uint8_t processOf(std::uint32_t device) const { return members_[device].device.process(); }
  /// An answer that came later has reached a process. One that has ended since is told nothing.
  void tell(std::uint32_t device, std::uint8_t process, Happening happening, Time now);

  const FleetScenario scenario_;
  const Time begins_;  ///< the scenario's day

 private:
  struct Member {
    FleetDevice device;
    std::uint16_t session = 0;  ///< the latest
    bool isRunning = false;
  };

  void happens(const EventWheel::Event &event, Time now);
  void beginSession(Time now, bool newProcess);
  void endSession(Time now);
  void scheduleForSession(Time at, Happening happening);

  void schedule(Time at, Phase phase, Happening happening) override;

  FleetUsers users_;
  EventWheel wheel_;
  std::vector<Member> members_;
  std::uint32_t current_ = 0;
};

}  // namespace kx::fleet
