#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace kx::collector {

/// The access tokens that logins are answered with, and messages have to carry. To be used by one thread at a
/// time.
class AccessTokens {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Duration = std::chrono::steady_clock::duration;

  virtual ~AccessTokens() = default;

  /// A new token.
  virtual std::string issue(Time now) = 0;
  /// That token is not good any more, here.
  virtual void forget(std::string_view token) = 0;
  /// Whether that token was given out, has not expired and has not been forgotten.
  virtual bool accept(std::string_view token, Time now) const = 0;

  /// One that nobody has given out.
  static std::string unknownToken();
};

}  // namespace kx::collector
