#include "tools/simulated-drive/Track.h"

#include <cmath>
#include <stdexcept>
#include <utility>

namespace kx::drive {

namespace {

constexpr double metresInDegree = 111195;  // of latitude, on a sphere
constexpr double degreesInRadian = 57.29577951308232;

/// From one waypoint to another, in metres to the north and to the east; for legs of some kilometres.
struct Leg {
  Leg(const Waypoint &from, const Waypoint &to)
      : north((to.latitude - from.latitude) * metresInDegree),
        east((to.longitude - from.longitude) * metresInDegree *
             std::cos((from.latitude + to.latitude) / 2 / degreesInRadian)) {}

  double length() const { return std::hypot(north, east); }
  double course() const {
    const double degrees = std::atan2(east, north) * degreesInRadian;
    return degrees < 0 ? degrees + 360 : degrees;
  }

  double north;
  double east;
};

}  // namespace

Track::Track(std::vector<Waypoint> waypoints) : waypoints_(std::move(waypoints)) {
  if (waypoints_.empty()) throw std::invalid_argument("a track without waypoints");
}

Fix Track::after(double seconds, double speed) const {
  double distance = seconds * speed;
  Fix fix{waypoints_.back()};
  for (std::size_t i = 1; i < waypoints_.size(); ++i) {
    const Waypoint &from = waypoints_[i - 1];
    const Waypoint &to = waypoints_[i];
    const Leg leg(from, to);
    fix.course = leg.course();
    if (distance < leg.length()) {
      const double part = distance / leg.length();
      fix.position = {from.latitude + part * (to.latitude - from.latitude),
                      from.longitude + part * (to.longitude - from.longitude)};
      fix.speed = speed;
      return fix;
    }
    distance -= leg.length();
  }
  return fix;
}

}  // namespace kx::drive
