#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

namespace kx {

/// An address on the loopback interface whose connections are never taken: the queue of those that wait there
/// is full, so that the kernel leaves the packets of further ones unanswered.
class UnansweredAddress {
 public:
  UnansweredAddress() {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address_;
    for (int &socket : sockets_) socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int listening = sockets_[0];
    bind(listening, reinterpret_cast<const sockaddr *>(&address_), size);
    getsockname(listening, reinterpret_cast<sockaddr *>(&address_), &size);
    listen(listening, 0);
    // More than a backlog of zero admits.
    for (std::size_t i = 1; i < sockets_.size(); ++i) {
      connect(sockets_[i], reinterpret_cast<const sockaddr *>(&address_), size);
    }
  }
  UnansweredAddress(const UnansweredAddress &) = delete;
  UnansweredAddress &operator=(const UnansweredAddress &) = delete;
  ~UnansweredAddress() {
    for (const int socket : sockets_) close(socket);
  }

  unsigned port() const { return ntohs(address_.sin_port); }
  std::string url() const { return "https://127.0.0.1:" + std::to_string(port()) + "/"; }

 private:
  sockaddr_in address_{};
  std::array<int, 5> sockets_{};
};

}  // namespace kx
