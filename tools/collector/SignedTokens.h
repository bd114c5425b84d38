#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "tools/collector/AccessTokens.h"
#include "tools/collector/TokenKeys.h"

namespace kx::collector {

/// Tokens that say themselves until when they are good, signed by HMAC-SHA256: whoever has the key can check
/// them, and nobody has to remember any. "1.<end, in seconds since 1970>.<16 random digits>.<signature>",
/// digits hexadecimal but those of the end.
///
/// The clocks of collectors side by side may differ by as much as an expiry may be early or late.
class SignedTokens : public AccessTokens {
 public:
  using Clock = std::function<std::chrono::system_clock::time_point()>;

  SignedTokens(TokenKeys keys, std::chrono::milliseconds lifetime,
               Clock clock = std::chrono::system_clock::now)
      : keys_(std::move(keys)), lifetime_(lifetime), clock_(std::move(clock)) {}

  /// From now on.
  void useKeys(TokenKeys keys) { keys_ = std::move(keys); }

  /// All of these go by the system's clock, which other collectors have as well. What is forgotten is so
  /// here alone, and only the latest of it.
  std::string issue(Time now) override;
  void forget(std::string_view token) override;
  bool accept(std::string_view token, Time now) const override;

 private:
  static constexpr std::size_t maximumForgotten = 1024;

  TokenKeys keys_;
  const std::chrono::milliseconds lifetime_;
  const Clock clock_;
  std::deque<std::string> forgotten_;
};

}  // namespace kx::collector
