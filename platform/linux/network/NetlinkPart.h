#pragma once

#include <cstddef>
#include <cstring>

namespace kx {

/// What stands at `offset` in the first `size` bytes of an answer of the kernel's; all zero where the answer
/// is too short for it.
template <class Part, class Answer>
Part netlinkPart(const Answer &answer, std::size_t size, std::size_t offset) {
  Part part{};
  if (offset + sizeof(part) <= size) std::memcpy(&part, answer.data() + offset, sizeof(part));
  return part;
}

}  // namespace kx
