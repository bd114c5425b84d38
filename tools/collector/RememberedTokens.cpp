#include "tools/collector/RememberedTokens.h"

#include <algorithm>

#include "tools/collector/Encoding.h"

namespace kx::collector {

std::string RememberedTokens::issue(Time now) {
  tokens_.push_back({unknownToken(), now});
  if (tokens_.size() > maximumCount_) tokens_.pop_front();
  return tokens_.back().text;
}

std::string AccessTokens::unknownToken() {
  return randomHexadecimal(16);
}

void RememberedTokens::forget(std::string_view token) {
  tokens_.erase(std::remove_if(tokens_.begin(), tokens_.end(),
                               [token](const Token &known) { return known.text == token; }),
                tokens_.end());
}

bool RememberedTokens::accept(std::string_view token, Time now) const {
  return std::any_of(tokens_.begin(), tokens_.end(), [&](const Token &known) {
    return known.text == token && (!lifetime_ || now < known.issued + *lifetime_);
  });
}

}  // namespace kx::collector
