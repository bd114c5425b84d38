#include "tools/fleet/FleetService.h"

#include <algorithm>

namespace kx::fleet {

namespace {

using Of = FleetScenario::Outage::Of;
using Outcome = Answer::Outcome;

enum : std::uint64_t { forLatency = 0x5e1, forTokenLife, forShedLogin };

}  // namespace

FleetService::FleetService(const FleetScenario::Service &service, std::uint64_t seed, Time begins)
    : seed_(seed),
      latency_(service.latency),
      tokenLife_(service.tokenLife ? *service.tokenLife * 1000 : -1),
      tokenLifeSpread_(service.tokenLifeSpread),
      capacity_(service.capacity) {
  for (const double refusal : service.refusals) refusals_.push_back(begins + milliseconds(refusal));
  for (const auto &outage : service.outages) {
    const Time from = begins + milliseconds(outage.at);
    outages_.push_back({from, from + milliseconds(outage.length), outage.silent, outage.of});
  }
}

Answer FleetService::login(std::uint32_t device, Time now) {
  return reached(device, now, /*isLogin=*/true);
}

Answer FleetService::message(std::uint32_t device, Time now, Time tokenIssuedAt) {
  Answer answer = reached(device, now, /*isLogin=*/false);
  if (answer.outcome == Outcome::accepted && isRefused(device, now, tokenIssuedAt))
    answer.outcome = Outcome::refused;
  return answer;
}

Answer FleetService::reached(std::uint32_t device, Time now, bool isLogin) {
  const auto occasion = static_cast<std::uint64_t>(now) << 1U | (isLogin ? 1U : 0U);
  const Time latency =
      std::clamp(milliseconds(latency_.at(drawnShare(seed_, device, occasion, forLatency))), 1, patience);
  for (const Outage &outage : outages_) {
    if (now < outage.from || now >= outage.to) continue;
    if (outage.of == (isLogin ? Of::messages : Of::logins)) continue;
    return {Outcome::failed, outage.silent ? patience : latency};
  }
  if (!capacity_) return {Outcome::accepted, latency};

  const double wait = std::max(0.0, busyUntil_ - now);
  const auto &shedAbove = isLogin ? capacity_->shedLoginsAbove : capacity_->shedMessagesAbove;
  if (shedAbove && wait > *shedAbove * 1000) {
    const double later =
        isLogin ? capacity_->spreadShedLogins * drawnShare(seed_, device, occasion, forShedLogin) : 0;
    return {Outcome::failed, std::min(latency + milliseconds(later), patience)};
  }
  busyUntil_ = now + wait + (isLogin ? capacity_->loginCost : 1) * 1000 / capacity_->perSecond;
  // One that is given up is worked on all the same: nobody tells the service.
  if (wait + latency >= patience) return {Outcome::failed, patience};
  return {Outcome::accepted, latency + static_cast<Time>(wait)};
}

bool FleetService::isRefused(std::uint32_t device, Time now, Time tokenIssuedAt) const {
  for (const Time refusal : refusals_) {
    if (tokenIssuedAt < refusal && refusal <= now) return true;
  }
  if (tokenLife_ < 0) return false;
  const double drawn = drawnShare(seed_, device, static_cast<std::uint64_t>(tokenIssuedAt), forTokenLife);
  return now - tokenIssuedAt >= tokenLife_ * (1 + tokenLifeSpread_ * (2 * drawn - 1));
}

}  // namespace kx::fleet
