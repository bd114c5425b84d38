#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// What the fuzz targets have in common. Each is a function that a fuzzer calls with whatever bytes it likes;
// what the code under it must never do, whatever they are, ends the process.

namespace kx {

/// Ends the process, which the fuzzer reports, when `holds` is false.
inline void require(bool holds, const char *what) {
  if (holds) return;
  std::fprintf(stderr, "This does not hold: %s\n", what);
  std::abort();
}

/// By a judge of its own.
inline bool isUTF8(const std::string &text) {
  try {
    static_cast<void>(nlohmann::json(text).dump());
    return true;
  } catch (const nlohmann::json::type_error &) {
    return false;
  }
}

/// The parts of an input that is to stand for several texts: they are separated by bytes of zero. There are
/// `count`, of which the last ones may be empty.
inline std::vector<std::string> parts(const std::uint8_t *bytes, std::size_t size, std::size_t count) {
  std::vector<std::string> found(1);
  for (std::size_t at = 0; at < size; ++at) {
    if (bytes[at] == 0 && found.size() < count) {
      found.emplace_back();
    } else {
      found.back() += static_cast<char>(bytes[at]);
    }
  }
  found.resize(count);
  return found;
}

}  // namespace kx

/// What a fuzzer calls, again and again in one process.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size);
