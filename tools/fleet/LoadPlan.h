#pragma once

#include <cstdint>
#include <vector>

#include "tools/fleet/FleetLives.h"
#include "tools/fleet/FleetService.h"

namespace kx::fleet {

/// Whoever sends what the plan wants sent.
class LoadSender {
 public:
  virtual ~LoadSender() = default;

  /// A process of a device, by its number, wants to send that now. False: it is not sent, and to the device
  /// that is a failure.
  virtual bool sendLogin(std::uint32_t device, std::uint8_t process, Time now) = 0;
  virtual bool sendMessage(std::uint32_t device, std::uint8_t process, Time now) = 0;
  /// A report was made that is not sent, and that is as it should be.
  virtual void reportIsLost(Lost why) = 0;
};

/// When which device sends what: the fleet's lives, first on virtual time with the scenario's service, and
/// from a time of its day on with a real one. What the scenario's service does from then on does not count.
class LoadPlan : private FleetLives {
 public:
  /// `from`: seconds of the scenario's day. The fleet has lived until then.
  LoadPlan(const FleetScenario &scenario, double from);

  Time from() const { return from_; }
  /// The devices that have a token then, and use it before `until` if nothing goes wrong; they are to have a
  /// real one first. In any order.
  static std::vector<std::uint32_t> devicesWithToken(const FleetScenario &scenario, double from, Time until);
  std::uint8_t processAtBeginning(std::uint32_t device) const { return processOf(device); }

  /// Has all be sent by `sender` that is due before `until`.
  void runUntil(Time until, LoadSender &sender);

  // What became of it, at a time that is not before the latest `until`.

  void loginIsAnswered(std::uint32_t device, std::uint8_t process, bool withToken, Time now);
  void tokenIsRefused(std::uint32_t device, std::uint8_t process, Time now);

 private:
  Answer login(Time now) override;
  Answer message(Time now, Time tokenIssuedAt) override;
  void reportIsLost(Time now, Lost why) override;

  FleetService service_;
  const Time from_;
  LoadSender *sender_ = nullptr;        ///< absent on virtual time
  std::vector<bool> *noted_ = nullptr;  ///< where devices are noted that use a token of before
};

}  // namespace kx::fleet
