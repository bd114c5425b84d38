#pragma once

#include <cerrno>
#include <cstdlib>

namespace kx {

/// An argument as a number and nothing else; negative where it is absent or no such number.
inline long long numberOf(const char *text) {
  if (text == nullptr || *text < '0' || *text > '9') return -1;
  char *end = nullptr;
  errno = 0;
  const long long number = std::strtoll(text, &end, 10);
  return *end == '\0' && errno == 0 ? number : -1;
}

}  // namespace kx
