#include "tools/collector/AccessTokens.h"

#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace kx::collector {

namespace {

std::string randomHexadecimal() {
  std::array<unsigned char, 16> bytes;
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
    throw std::runtime_error("no random numbers for an access token");
  }
  std::string text;
  for (const unsigned byte : bytes) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

}  // namespace

std::string AccessTokens::issue(Time now) {
  tokens_.push_back({randomHexadecimal(), now});
  if (tokens_.size() > maximumCount_) tokens_.pop_front();
  return tokens_.back().text;
}

bool AccessTokens::accept(std::string_view token, Time now) const {
  return std::any_of(tokens_.begin(), tokens_.end(), [&](const Token &known) {
    return known.text == token && (!lifetime_ || now < known.issued + *lifetime_);
  });
}

}  // namespace kx::collector
