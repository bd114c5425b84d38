#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kx::collector {

std::string base64(std::string_view bytes);
std::string hexadecimal(std::string_view bytes);
/// The bytes that hexadecimal digits of either case stand for; absent for any other text.
std::optional<std::string> fromHexadecimal(std::string_view digits);

/// So many random bytes in hexadecimal digits, good for secrets.
std::string randomHexadecimal(std::size_t bytes);

/// The beginning of a text, not cut within a character of UTF-8.
std::string_view beginningOf(std::string_view text, std::size_t maximumSize);

}  // namespace kx::collector
