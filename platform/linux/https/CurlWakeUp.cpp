#include "platform/linux/https/CurlWakeUp.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <vector>

namespace kx {

namespace {

constexpr int wakeUps = 3;

/// A new descriptor gets the lowest number that is free. So the pair is below this many free ones, unless as
/// many others were closed right after it was made.
constexpr int enoughFree = 8;

bool isLocalSocket(int descriptor) {
  int domain = 0;
  socklen_t size = sizeof domain;
  return getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

/// How much waits in a socket to be read, and how much of what it has sent the other end has not read.
struct Waiting {
  int here = 0;
  int there = 0;

  explicit Waiting(int socket) {
    ioctl(socket, SIOCINQ, &here);
    ioctl(socket, SIOCOUTQ, &there);
  }
  bool isNothing() const { return here == 0 && there == 0; }
  /// The reading end has a byte of each wake-up. At the other end the kernel counts the room that they take.
  bool isOfWakeUps() const { return here == wakeUps || there > 0; }
};

}  // namespace

bool closeWakeUpSocketsOnExec(CURLM *multi) {
  std::vector<int> sockets;
  for (int descriptor = 0, free = 0; free < enoughFree; ++descriptor) {
    const int flags = fcntl(descriptor, F_GETFD);
    if (flags < 0) ++free;
    if (flags == 0 && isLocalSocket(descriptor) && Waiting(descriptor).isNothing()) {
      sockets.push_back(descriptor);
    }
  }
  const auto keepThose = [&sockets](auto &&condition) {
    sockets.erase(std::remove_if(sockets.begin(), sockets.end(), [&](int one) { return !condition(one); }),
                  sockets.end());
  };
  for (int i = 0; i < wakeUps; ++i) {
    if (curl_multi_wakeup(multi) != CURLM_OK) return false;
  }
  keepThose([](int socket) { return Waiting(socket).isOfWakeUps(); });
  curl_multi_poll(multi, nullptr, 0, 0, nullptr);
  keepThose([](int socket) { return Waiting(socket).isNothing(); });
  for (const int socket : sockets) fcntl(socket, F_SETFD, FD_CLOEXEC);
  return true;
}

}  // namespace kx
