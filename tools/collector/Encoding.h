#pragma once

#include <string>
#include <string_view>

namespace kx::collector {

std::string base64(std::string_view bytes);
std::string hexadecimal(std::string_view bytes);

/// So many random bytes in hexadecimal digits, good for secrets.
std::string randomHexadecimal(std::size_t bytes);

/// The beginning of a text, not cut within a character of UTF-8.
std::string_view beginningOf(std::string_view text, std::size_t maximumSize);

}  // namespace kx::collector
