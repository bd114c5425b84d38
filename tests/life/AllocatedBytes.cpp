#include "tests/life/AllocatedBytes.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace kx {

namespace {

std::atomic<std::size_t> bytes{0};
std::atomic<std::size_t> blocks{0};

}  // namespace

std::size_t allocatedBytes() {
  return bytes;
}

std::size_t allocatedBlocks() {
  return blocks;
}

}  // namespace kx

// In the place of the standard library's; its other forms call these. Before each block stands how much was
// asked for: what malloc has made of that is more at one time than at another.

constexpr std::size_t room = alignof(std::max_align_t);

void *operator new(std::size_t size) {
  void *const begin = std::malloc(room + size);
  if (begin == nullptr) throw std::bad_alloc();
  *static_cast<std::size_t *>(begin) = size;
  kx::bytes += size;
  ++kx::blocks;
  return static_cast<char *>(begin) + room;
}

void operator delete(void *block) noexcept {
  if (block == nullptr) return;
  void *const begin = static_cast<char *>(block) - room;
  kx::bytes -= *static_cast<std::size_t *>(begin);
  --kx::blocks;
  std::free(begin);
}

void operator delete(void *block, std::size_t) noexcept {
  operator delete(block);
}
