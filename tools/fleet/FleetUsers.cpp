#include "tools/fleet/FleetUsers.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace kx::fleet {

namespace {

enum : std::uint64_t { forZone = 0x05e5, forIdentifier, forNextSession, forLength, forNewProcess };

constexpr double day = 86'400;  // seconds
constexpr double hour = 3600;
constexpr double latest = 2e9;  // milliseconds: later than every forecast's end

}  // namespace

FleetUsers::FleetUsers(const FleetScenario::Use &use, std::uint64_t seed, Time begins)
    : use_(use), seed_(seed), begins_(begins) {
  const double all = std::accumulate(use.hours.begin(), use.hours.end(), 0.0);
  for (std::size_t i = 0; i < use.hours.size(); ++i)
    sessionsBefore_[i + 1] = sessionsBefore_[i] + use.hours[i] / all * use.sessionsPerDay;
}

bool FleetUsers::hasUsableIdentifier(std::uint32_t device) const {
  return drawnShare(seed_, device, 0, forIdentifier) >= use_.withoutIdentifier;
}

double FleetUsers::hoursAhead(std::uint32_t device) const {
  if (use_.zones.size() == 1) return use_.zones.front().hoursAhead;
  double share = drawnShare(seed_, device, 0, forZone);
  for (const auto &zone : use_.zones) {
    if (share < zone.share) return zone.hoursAhead;
    share -= zone.share;
  }
  return use_.zones.back().hoursAhead;
}

/// Sessions begin independently of each other, at a rate that changes with the hour.
Time FleetUsers::nextSession(std::uint32_t device, std::uint16_t session, Time ended) const {
  const double shift = hoursAhead(device) * hour - begins_ / 1000.0;
  const double local = ended / 1000.0 + shift;
  const double today = std::floor(local / day);
  const double inDay = local - today * day;
  const auto inHour = std::min(static_cast<std::size_t>(inDay / hour), use_.hours.size() - 1);
  const double perDay = sessionsBefore_.back();
  const double passed = sessionsBefore_[inHour] + (inDay / hour - static_cast<double>(inHour)) *
                                                      (sessionsBefore_[inHour + 1] - sessionsBefore_[inHour]);
  const double expected = passed - std::log1p(-drawnShare(seed_, device, session, forNextSession));

  const double days = std::floor(expected / perDay);
  const double rest = expected - days * perDay;
  const auto after = std::upper_bound(sessionsBefore_.begin(), sessionsBefore_.end() - 1, rest);
  const double part = (rest - *(after - 1)) / (*after - *(after - 1));
  const double at =
      (today + days) * day + (static_cast<double>(after - sessionsBefore_.begin() - 1) + part) * hour - shift;
  return at * 1000 < latest ? milliseconds(at) : static_cast<Time>(latest);
}

Time FleetUsers::lengthOf(std::uint32_t device, std::uint16_t session) const {
  return milliseconds(use_.sessionLength.at(drawnShare(seed_, device, session, forLength)));
}

bool FleetUsers::beginsWithNewProcess(std::uint32_t device, std::uint16_t session) const {
  return drawnShare(seed_, device, session, forNewProcess) < use_.newProcess;
}

}  // namespace kx::fleet
