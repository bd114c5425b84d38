#include "tools/collector/Encoding.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <charconv>
#include <stdexcept>

namespace kx::collector {

std::string base64(std::string_view bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');  // OpenSSL ends it with a zero
  const int size =
      EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text.data()),
                      reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  return text;
}

std::string hexadecimal(std::string_view bytes) {
  std::string text;
  for (const char character : bytes) {
    const unsigned byte = static_cast<unsigned char>(character);
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

std::optional<std::string> fromHexadecimal(std::string_view digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (std::size_t place = 0; place < digits.size(); place += 2) {
    const char *const end = digits.data() + place + 2;
    unsigned char byte = 0;
    // It takes no sign in front of a type that has none.
    const auto read = std::from_chars(digits.data() + place, end, byte, 16);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

std::string randomHexadecimal(std::size_t count) {
  std::string bytes(count, '\0');
  if (RAND_bytes(reinterpret_cast<unsigned char *>(bytes.data()), static_cast<int>(count)) != 1) {
    throw std::runtime_error("no random numbers for an access token");
  }
  return hexadecimal(bytes);
}

std::string_view beginningOf(std::string_view text, std::size_t maximumSize) {
  if (text.size() <= maximumSize) return text;
  std::size_t size = maximumSize;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) --size;
  return text.substr(0, size);
}

}  // namespace kx::collector
