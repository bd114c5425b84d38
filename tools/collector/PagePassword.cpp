#include "tools/collector/PagePassword.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "tools/collector/CertificateStore.h"

namespace kx::collector {

namespace {

constexpr std::string_view scheme = "Basic ";
constexpr std::string_view alphabet = "abcdefghijkmnpqrstuvwxyz23456789";  // 32, so that each is as likely
constexpr std::size_t passwordSize = 20;                                   // 100 bits

using Digest = std::array<unsigned char, 32>;

Digest digestOf(std::string_view text) {
  Digest digest{};
  if (EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("Cannot compare passwords");
  }
  return digest;
}

/// Empty for what is no base64 text.
std::string fromBase64(std::string_view text) {
  if (text.empty() || text.size() % 4 != 0) return "";
  std::string bytes(text.size() / 4 * 3, '\0');
  const int size =
      EVP_DecodeBlock(reinterpret_cast<unsigned char *>(bytes.data()),
                      reinterpret_cast<const unsigned char *>(text.data()), static_cast<int>(text.size()));
  if (size < 0) return "";
  const std::size_t padding = text.size() - 1 - text.find_last_not_of('=');
  bytes.resize(static_cast<std::size_t>(size) - (padding > 2 ? 0 : padding));
  return bytes;
}

}  // namespace

std::string newPassword() {
  std::array<unsigned char, passwordSize> random{};
  if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) {
    throw std::runtime_error("There are no random numbers for a password");
  }
  std::string password;
  for (const unsigned char byte : random) password += alphabet[byte % alphabet.size()];
  return password;
}

std::string passwordIn(const std::filesystem::path &file) {
  refuseToShare(file);
  const std::string content = contentOf(file);
  std::string password = content.substr(0, content.find_first_of("\r\n"));
  if (password.empty()) throw std::runtime_error(file.string() + " has no password in its first line");
  return password;
}

bool isAuthorized(std::string_view authorization, std::string_view password) {
  if (strncasecmp(authorization.data(), scheme.data(), std::min(scheme.size(), authorization.size())) != 0 ||
      authorization.size() < scheme.size()) {
    return false;
  }
  const std::string credentials = fromBase64(authorization.substr(scheme.size()));
  const std::size_t colon = credentials.find(':');
  if (colon == std::string::npos) return false;
  const Digest given = digestOf(std::string_view(credentials).substr(colon + 1));
  const Digest expected = digestOf(password);
  return CRYPTO_memcmp(given.data(), expected.data(), given.size()) == 0;
}

}  // namespace kx::collector
