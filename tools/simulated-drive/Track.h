#pragma once

#include <cstddef>
#include <vector>

namespace kx::drive {

/// In degrees, WGS 84.
struct Waypoint {
  double latitude = 0;
  double longitude = 0;
};

/// Where the vehicle is, and whereto it goes.
struct Fix {
  Waypoint position;
  double course = 0;  ///< degrees, clockwise from north
  double speed = 0;   ///< metres per second; 0 at the end of the track
};

/// A road through waypoints, straight from one to the next.
class Track {
 public:
  /// Throws `std::invalid_argument` without any waypoint.
  explicit Track(std::vector<Waypoint> waypoints);

  /// After `seconds` at `speed` metres per second.
  Fix after(double seconds, double speed) const;

 private:
  std::vector<Waypoint> waypoints_;
};

}  // namespace kx::drive
