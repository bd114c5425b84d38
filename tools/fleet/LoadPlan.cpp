#include "tools/fleet/LoadPlan.h"

namespace kx::fleet {

LoadPlan::LoadPlan(const FleetScenario &scenario, double from)
    : FleetLives(scenario),
      service_(scenario.service, scenario.seed, begins_),
      from_(begins_ + milliseconds(from)) {
  liveUntil(from_);
}

std::vector<std::uint32_t> LoadPlan::devicesWithToken(const FleetScenario &scenario, double from,
                                                      Time until) {
  LoadPlan plan(scenario, from);
  std::vector<bool> noted(scenario.devices);
  plan.noted_ = &noted;
  plan.liveUntil(until);
  std::vector<std::uint32_t> devices;
  for (std::uint32_t device = 0; device < scenario.devices; ++device) {
    if (noted[device]) devices.push_back(device);
  }
  return devices;
}

void LoadPlan::runUntil(Time until, LoadSender &sender) {
  sender_ = &sender;
  liveUntil(until);
}

void LoadPlan::loginIsAnswered(std::uint32_t device, std::uint8_t process, bool withToken, Time now) {
  tell(device, process, withToken ? Happening::loginSucceeds : Happening::loginFails, now);
}

void LoadPlan::tokenIsRefused(std::uint32_t device, std::uint8_t process, Time now) {
  tell(device, process, Happening::tokenIsRefused, now);
}

Answer LoadPlan::login(Time now) {
  if (sender_ == nullptr) return service_.login(current(), now);
  if (sender_->sendLogin(current(), processOf(current()), now)) return {Answer::Outcome::later, 0};
  return {Answer::Outcome::failed, 1};
}

Answer LoadPlan::message(Time now, Time tokenIssuedAt) {
  if (sender_ != nullptr) {
    const bool isSent = sender_->sendMessage(current(), processOf(current()), now);
    return {isSent ? Answer::Outcome::later : Answer::Outcome::failed, 1};
  }
  if (noted_ != nullptr && tokenIssuedAt < from_) (*noted_)[current()] = true;
  return service_.message(current(), now, tokenIssuedAt);
}

void LoadPlan::reportIsLost(Time, Lost why) {
  if (sender_ != nullptr) sender_->reportIsLost(why);
}

}  // namespace kx::fleet
