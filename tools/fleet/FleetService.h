#pragma once

#include <cstdint>
#include <vector>

#include "tools/fleet/FleetDevice.h"
#include "tools/fleet/FleetScenario.h"

namespace kx::fleet {

/// What the scenario's service answers. Requests come in the order of time.
class FleetService {
 public:
  /// The library gives up a request that makes no progress for so long.
  static constexpr Time patience = 60'000;

  /// `begins`: the time at which the scenario's day begins.
  FleetService(const FleetScenario::Service &service, std::uint64_t seed, Time begins);

  Answer login(std::uint32_t device, Time now);
  Answer message(std::uint32_t device, Time now, Time tokenIssuedAt);

 private:
  struct Outage {
    Time from;
    Time to;
    bool silent;
    FleetScenario::Outage::Of of;
  };

  /// Whether a request is answered at all, and when: what an outage and too much to do leave of it.
  Answer reached(std::uint32_t device, Time now, bool isLogin);
  bool isRefused(std::uint32_t device, Time now, Time tokenIssuedAt) const;

  const std::uint64_t seed_;
  const Quantiles latency_;
  const double tokenLife_;  ///< milliseconds; negative: for ever
  const double tokenLifeSpread_;
  std::vector<Time> refusals_;
  std::vector<Outage> outages_;
  const std::optional<FleetScenario::Capacity> capacity_;
  double busyUntil_ = 0;
};

}  // namespace kx::fleet
