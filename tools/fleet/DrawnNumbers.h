#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace kx::fleet {

/// A number that is always the same for the same four, and otherwise as good as drawn. What is drawn for one
/// device and one occasion so does not depend on what happens to others, or has happened before: two
/// forecasts of which one has an outage have the same users.
inline std::uint64_t drawn(std::uint64_t seed, std::uint64_t device, std::uint64_t occasion,
                           std::uint64_t purpose) {
  std::uint64_t number = seed;
  for (const std::uint64_t part : {device, occasion, purpose}) {
    number += part + 0x9e3779b97f4a7c15U;
    number = (number ^ (number >> 30U)) * 0xbf58476d1ce4e5b9U;
    number = (number ^ (number >> 27U)) * 0x94d049bb133111ebU;
    number ^= number >> 31U;
  }
  return number;
}

/// The same as a share: from 0 to below 1.
inline double drawnShare(std::uint64_t seed, std::uint64_t device, std::uint64_t occasion,
                         std::uint64_t purpose) {
  return static_cast<double>(drawn(seed, device, occasion, purpose) >> 11U) * 0x1p-53;
}

/// How values are spread, by some of its quantiles, with straight lines between them.
class Quantiles {
 public:
  struct Point {
    double share;  ///< of the values that are not greater, 0 to 1; the first point has 0 and the last one 1
    double value;
  };

  /// Always this value.
  explicit Quantiles(double value) : points_{{0, value}, {1, value}} {}
  explicit Quantiles(std::vector<Point> points) : points_(std::move(points)) {}

  double at(double share) const {
    std::size_t next = 1;
    while (next + 1 < points_.size() && points_[next].share < share) ++next;
    const Point &from = points_[next - 1];
    const Point &to = points_[next];
    return from.value + (to.value - from.value) * (share - from.share) / (to.share - from.share);
  }
  double greatest() const { return points_.back().value; }

 private:
  std::vector<Point> points_;
};

}  // namespace kx::fleet
