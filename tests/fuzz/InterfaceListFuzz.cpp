#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "platform/linux/network/LinuxInterfaceList.h"
#include "tests/fuzz/Fuzzing.h"

// Whatever the kernel answers when it is asked for its addresses, it is read within its bounds and to an end,
// and every name is a text.

namespace {

const std::uint8_t *answer = nullptr;
std::size_t answerSize = 0;

}  // namespace

// In the places of the system's: the question goes nowhere, and the input is the answer, in parts as large as
// there is room.

extern "C" __attribute__((visibility("default"))) ssize_t sendto(int, const void *, size_t size, int,
                                                                 const sockaddr *, socklen_t) {
  return static_cast<ssize_t>(size);
}

extern "C" __attribute__((visibility("default"))) ssize_t recv(int, void *to, size_t room, int) {
  const std::size_t size = std::min(answerSize, room);
  if (size > 0) std::memcpy(to, answer, size);
  answer += size;
  answerSize -= size;
  return static_cast<ssize_t>(size);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  answer = bytes;
  answerSize = size;
  for (const kx::InterfaceAddress &entry : kx::LinuxInterfaceList().getifaddrs()) {
    kx::require(!entry.name.empty() && kx::isUTF8(entry.name), "every name is a text");
    kx::require(entry.family == kx::AddressFamily::inet, "every address is one of IPv4");
  }
  return 0;
}
