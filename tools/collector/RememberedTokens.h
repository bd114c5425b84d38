#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "tools/collector/AccessTokens.h"

namespace kx::collector {

/// Tokens that say nothing by themselves: 32 random hexadecimal digits, known to this collector alone. The
/// oldest are forgotten when there are too many.
class RememberedTokens : public AccessTokens {
 public:
  /// Without a lifetime tokens do not expire.
  RememberedTokens(std::size_t maximumCount, std::optional<Duration> lifetime)
      : maximumCount_(maximumCount), lifetime_(lifetime) {}

  std::string issue(Time now) override;
  void forget(std::string_view token) override;
  bool accept(std::string_view token, Time now) const override;

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
