// Lives as a seed draws them, and what they look like.

#include <array>
#include <cstdio>
#include <random>

#include "tests/tools/fleet/FleetLife.h"

namespace kx::fleet {

namespace {

using Random = std::mt19937_64;

Time below(Random &random, Time bound) {
  return static_cast<Time>(random() % static_cast<std::uint64_t>(bound));
}

/// Seconds; mostly a few, for what happens close together is what counts, and sometimes hours.
Time pause(Random &random) {
  constexpr std::array<Time, 8> longest{2, 8, 8, 70, 700, 700, 5000, 15'000};
  return below(random, longest[static_cast<std::size_t>(below(random, longest.size()))]);
}

FleetScenario::Service anyService(Random &random, Time length) {
  FleetScenario::Service service;
  constexpr std::array<double, 6> slowest{0.125, 0.5, 2, 5, 30, 59.9};
  service.latency = Quantiles({{0, 0.1}, {1, slowest[static_cast<std::size_t>(below(random, 6))]}});
  if (below(random, 2) == 0) {
    service.tokenLife = 1 + below(random, 1000) * (below(random, 3) == 0 ? 30 : 1);
    service.tokenLifeSpread = below(random, 3) / 2.0;
  }
  for (Time i = below(random, 4); i > 0; --i) service.refusals.push_back(below(random, length) / 1000.0);
  for (Time i = below(random, 4); i > 0; --i) {
    FleetScenario::Outage outage;
    outage.at = below(random, length) / 1000.0;
    outage.length = pause(random);
    outage.silent = below(random, 2) == 0;
    outage.of = static_cast<FleetScenario::Outage::Of>(below(random, 3));
    service.outages.push_back(outage);
  }
  return service;
}

Act anyAct(Random &random, bool suspended) {
  if (suspended) return below(random, 6) == 0 ? Act::launches : Act::isResumed;
  switch (below(random, 12)) {
    case 0:
      return Act::launches;
    case 1:
    case 2:
    case 3:
      return Act::entersBackground;
    case 4:
    case 5:
    case 6:
      return Act::entersForeground;
    case 7:
    case 8:
    case 9:
      return Act::isSuspended;
    case 10:
      return Act::refreshIsDenied;
    default:
      return Act::refreshIsGranted;
  }
}

const char *nameOf(Act act) {
  constexpr std::array<const char *, 7> names{
      "a process starts", "it enters the background", "it enters the foreground",     "it is suspended",
      "it is resumed",    "refresh is denied",        "background refresh is granted"};
  return names.at(static_cast<std::size_t>(act));
}

}  // namespace

FleetLife FleetLife::ofSeed(std::uint64_t seed) {
  Random random(seed ^ 0x2545f4914f6cdd1dU);
  FleetLife life;
  life.seed = seed;
  life.hasUsableIdentifier = below(random, 16) != 0;
  life.events.push_back({0, Act::launches});
  const Time acts = 1 + below(random, 24);
  bool suspended = false;
  Time at = 0;
  for (Time i = 1; i <= acts; ++i) {
    const Act act = anyAct(random, suspended);
    at = (at / grid + 1 + pause(random) * 1000 / grid) * grid + i;  // of its own within the grid
    life.events.push_back({at, act});
    suspended = act == Act::isSuspended;
  }
  life.end = (at / grid + 1 + pause(random) * 1000 / grid) * grid + acts + 1;
  life.service = anyService(random, life.end);
  return life;
}

std::string FleetLife::text() const {
  char line[200];
  std::snprintf(line, sizeof line, "life %llu, %s identifier, token life %g +- %g of it, latency to %g s\n",
                static_cast<unsigned long long>(seed), hasUsableIdentifier ? "a usable" : "no",
                service.tokenLife.value_or(-1), service.tokenLifeSpread, service.latency.greatest());
  std::string text = line;
  for (const double refusal : service.refusals) {
    std::snprintf(line, sizeof line, "  %.3f tokens are refused\n", refusal);
    text += line;
  }
  for (const auto &outage : service.outages) {
    constexpr std::array<const char *, 3> of{"everything", "logins", "messages"};
    std::snprintf(line, sizeof line, "  %.3f outage for %g s, %s, of %s\n", outage.at, outage.length,
                  outage.silent ? "silent" : "failing", of.at(static_cast<std::size_t>(outage.of)));
    text += line;
  }
  for (const auto &[at, act] : events) {
    std::snprintf(line, sizeof line, "  %d %s\n", at, nameOf(act));
    text += line;
  }
  std::snprintf(line, sizeof line, "  %d the end\n  the fleet's device, the library:\n", end);
  return text + line;
}

}  // namespace kx::fleet
