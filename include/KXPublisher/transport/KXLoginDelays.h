#pragma once

#include <functional>

namespace kx::constants {

// From a failed login to the next one, in seconds: the first delay, the last one, and by what it grows
// between the two.
inline constexpr double accessTokenRequestTimeIntervalMinValue = 300.0;
inline constexpr double accessTokenRequestTimeIntervalMaxValue = 3600.0;
inline constexpr unsigned accessTokenRequestTimeIntervalMultiplier = 2;

/// The delay that follows one of `last` seconds; 0: no login has failed since the last success.
constexpr double accessTokenRequestTimeIntervalAfter(double last) {
  if (std::equal_to<>()(last, 0.0)) return accessTokenRequestTimeIntervalMinValue;
  const double longer = last * accessTokenRequestTimeIntervalMultiplier;
  return longer > accessTokenRequestTimeIntervalMaxValue ? accessTokenRequestTimeIntervalMaxValue : longer;
}

}  // namespace kx::constants
