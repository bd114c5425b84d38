#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "platform/linux/network/NetworkRoute.h"
#include "tests/fuzz/Fuzzing.h"

// Whatever the kernel answers when it is asked for a route, it is read within its bounds.

namespace {

const std::uint8_t *answer = nullptr;
std::size_t answerSize = 0;

}  // namespace

// In the places of the system's: the question goes nowhere, and every answer is the input.

extern "C" __attribute__((visibility("default"))) ssize_t sendto(int, const void *, size_t size, int,
                                                                 const sockaddr *, socklen_t) {
  return static_cast<ssize_t>(size);
}

extern "C" __attribute__((visibility("default"))) ssize_t recv(int, void *to, size_t room, int) {
  const std::size_t size = std::min(answerSize, room);
  if (size > 0) std::memcpy(to, answer, size);
  return static_cast<ssize_t>(size);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  answer = bytes;
  answerSize = size;
  kx::interfaceOfRouteTo(in_addr{});
  kx::interfaceOfAnyRoute();
  return 0;
}
