#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace kx::collector {

/// The access tokens that were given out. The oldest are forgotten when there are too many.
class AccessTokens {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Duration = std::chrono::steady_clock::duration;

  /// Without a lifetime tokens do not expire.
  AccessTokens(std::size_t maximumCount, std::optional<Duration> lifetime)
      : maximumCount_(maximumCount), lifetime_(lifetime) {}

  /// A new random token, 32 hexadecimal digits.
  std::string issue(Time now);

  /// One that is not known here.
  static std::string unknownToken();

  /// That token is not good any more.
  void forget(std::string_view token);

  /// Whether that token was given out, has not expired and has not been forgotten.
  bool accept(std::string_view token, Time now) const;

 private:
  struct Token {
    std::string text;
    Time issued;
  };

  const std::size_t maximumCount_;
  const std::optional<Duration> lifetime_;
  std::deque<Token> tokens_;  // oldest first
};

}  // namespace kx::collector
