#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kx::fleet {

/// How long answers took, so that any percentile can be told afterwards, as exactly for a millisecond as for
/// a minute: to less than one part in sixty-four. It takes the same memory for a million of them as for one.
class LatencyHistogram {
 public:
  void add(double seconds) {
    const std::size_t place = placeOf(microseconds(seconds));
    if (place >= counts_.size()) counts_.resize(place + 1);
    ++counts_[place];
    ++count_;
    greatest_ = std::max(greatest_, seconds);
  }

  std::uint64_t count() const { return count_; }
  double greatest() const { return greatest_; }

  /// Seconds that this share of all, 0 to 1, did not exceed; 0 where there is none.
  double at(double share) const {
    const auto wanted = std::max<std::uint64_t>(
        1, static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count_))));
    std::uint64_t passed = 0;
    for (std::size_t place = 0; place < counts_.size(); ++place) {
      passed += counts_[place];
      if (passed >= wanted) return std::min(static_cast<double>(endOf(place)) / 1e6, greatest_);
    }
    return greatest_;
  }

 private:
  // Below so many microseconds each has a place of its own; above, a half of them lie between a power of two
  // and the next one.
  static constexpr unsigned bits = 7;
  static constexpr std::uint64_t half = std::uint64_t{1} << (bits - 1);

  static std::uint64_t microseconds(double seconds) {
    constexpr double longest = 1e6;  // seconds: eleven days
    return static_cast<std::uint64_t>(std::llround(std::clamp(seconds, 0.0, longest) * 1e6));
  }
  static std::size_t placeOf(std::uint64_t value) {
    unsigned shift = 0;
    while ((value >> shift) >= 2 * half) ++shift;
    return static_cast<std::size_t>(shift * half + (value >> shift));
  }
  /// The greatest value of that place.
  static std::uint64_t endOf(std::size_t place) {
    if (place < 2 * half) return place;
    const std::uint64_t shift = place / half - 1;
    const std::uint64_t first = place - shift * half;
    return ((first + 1) << shift) - 1;
  }

  std::vector<std::uint64_t> counts_;
  std::uint64_t count_ = 0;
  double greatest_ = 0;
};

}  // namespace kx::fleet
