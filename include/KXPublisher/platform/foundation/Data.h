#pragma once

#include <cstdint>
#include <vector>

namespace kx {

/// A run of bytes.
using Data = std::vector<std::uint8_t>;

}  // namespace kx
