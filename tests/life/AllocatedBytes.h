#pragma once

#include <cstddef>

namespace kx {

/// What the process has by `operator new` and has not given back.
std::size_t allocatedBytes();
std::size_t allocatedBlocks();

}  // namespace kx
