#include "platform/linux/https/CurlWakeUp.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace kx {

namespace {

namespace fs = std::filesystem;

constexpr int wakeUps = 3;

bool isInheritedSocket(int descriptor) {
  int domain = 0;
  socklen_t size = sizeof domain;
  return getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX &&
         (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0;
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

void closeWakeUpSocketsOnExec(CURLM *multi) {
  std::vector<int> sockets;
  std::error_code error;
  for (fs::directory_iterator entry("/proc/self/fd", error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    const auto descriptor = static_cast<int>(std::strtol(entry->path().filename().c_str(), nullptr, 10));
    if (isInheritedSocket(descriptor) && Waiting(descriptor).isNothing()) sockets.push_back(descriptor);
  }
  const auto keepThose = [&sockets](auto &&condition) {
    sockets.erase(std::remove_if(sockets.begin(), sockets.end(), [&](int one) { return !condition(one); }),
                  sockets.end());
  };
  for (int i = 0; i < wakeUps; ++i) curl_multi_wakeup(multi);
  keepThose([](int socket) { return Waiting(socket).isOfWakeUps(); });
  curl_multi_poll(multi, nullptr, 0, 0, nullptr);
  keepThose([](int socket) { return Waiting(socket).isNothing(); });
  for (const int socket : sockets) fcntl(socket, F_SETFD, FD_CLOEXEC);
}

}  // namespace kx
