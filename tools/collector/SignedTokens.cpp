#include "tools/collector/SignedTokens.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <stdexcept>

#include "tools/collector/Encoding.h"

namespace kx::collector {

namespace {

constexpr std::string_view beginningOfToken = "1.";
constexpr std::size_t randomBytes = 8;
constexpr std::size_t maximumSizeOfToken = 128;

std::string signatureOf(std::string_view text, const std::string &key) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
           reinterpret_cast<const unsigned char *>(text.data()), text.size(), digest.data(),
           &size) == nullptr) {
    throw std::runtime_error("Cannot sign a token");
  }
  return hexadecimal({reinterpret_cast<const char *>(digest.data()), size});
}

/// Takes as long for a wrong one as for the right one, wherever they differ.
bool isSignedBy(const std::string &key, std::string_view text, std::string_view signature) {
  const std::string expected = signatureOf(text, key);
  return signature.size() == expected.size() &&
         CRYPTO_memcmp(signature.data(), expected.data(), expected.size()) == 0;
}

std::int64_t millisecondsOf(std::chrono::system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

/// Of a token whose signature is right.
std::int64_t endIn(std::string_view token) {
  std::int64_t seconds = 0;
  std::from_chars(token.data() + beginningOfToken.size(), token.data() + token.size(), seconds);
  return seconds;
}

}  // namespace

std::string SignedTokens::issue(Time /*now*/) {
  const std::int64_t end = (millisecondsOf(clock_()) + lifetime_.count() + 999) / 1000;
  const std::string text =
      std::string(beginningOfToken) + std::to_string(end) + "." + randomHexadecimal(randomBytes);
  return text + "." + signatureOf(text, keys_.current);
}

void SignedTokens::forget(std::string_view token) {
  forgotten_.emplace_back(token);
  if (forgotten_.size() > maximumForgotten) forgotten_.pop_front();
}

bool SignedTokens::accept(std::string_view token, Time /*now*/) const {
  const std::size_t dot = token.rfind('.');
  if (token.size() > maximumSizeOfToken || dot == std::string_view::npos) return false;
  const std::string_view text = token.substr(0, dot);
  const std::string_view signature = token.substr(dot + 1);
  if (!isSignedBy(keys_.current, text, signature) &&
      !(keys_.other && isSignedBy(*keys_.other, text, signature))) {
    return false;
  }
  // Nobody without a key has written what is read from here on.
  return millisecondsOf(clock_()) < endIn(token) * 1000 &&
         std::find(forgotten_.begin(), forgotten_.end(), token) == forgotten_.end();
}

}  // namespace kx::collector
