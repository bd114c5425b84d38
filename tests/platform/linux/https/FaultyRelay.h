#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <thread>

namespace kx {

/// Stands between a client and a server on the loopback interface. It hands on what either says until the
/// server has said so many bytes; then, in the middle of whatever goes on, it does its worst.
class FaultyRelay {
 public:
  enum class Fault { stalls, closes, resets };

  FaultyRelay(std::uint16_t server, std::size_t bytes, Fault fault) : bytesLeft_(bytes), fault_(fault) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    listening_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bind(listening_, reinterpret_cast<const sockaddr *>(&address), size);
    getsockname(listening_, reinterpret_cast<sockaddr *>(&address), &size);
    listen(listening_, 1);
    port_ = ntohs(address.sin_port);
    if (pipe(end_.data()) != 0) throw std::runtime_error("pipe");
    thread_ = std::thread([this, server] { relay(server); });
  }
  FaultyRelay(const FaultyRelay &) = delete;
  FaultyRelay &operator=(const FaultyRelay &) = delete;
  ~FaultyRelay() {
    close(end_[1]);
    thread_.join();
    close(end_[0]);
    close(listening_);
  }

  std::string url() const { return "https://localhost:" + std::to_string(port_) + "/"; }

 private:
  static sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
  }

  /// Waits until there is something to read on one of them; -1 when the relay is to end.
  int readable(std::initializer_list<int> sockets) const {
    std::array<pollfd, 3> polled{{{end_[0], POLLIN, 0}}};
    nfds_t count = 1;
    for (const int socket : sockets) polled[count++] = {socket, POLLIN, 0};
    poll(polled.data(), count, -1);
    if (polled[0].revents != 0) return -1;
    return polled[1].revents != 0 ? polled[1].fd : polled[2].fd;
  }

  void relay(std::uint16_t port) {
    if (readable({listening_}) < 0) return;
    const int client = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    connect(server, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    std::array<char, 4096> buffer{};
    while (bytesLeft_ > 0) {
      const int from = readable({client, server});
      if (from < 0) break;
      const std::size_t limit = from == server ? std::min(bytesLeft_, buffer.size()) : buffer.size();
      const ssize_t read = recv(from, buffer.data(), limit, 0);
      if (read <= 0) break;
      if (from == server) bytesLeft_ -= static_cast<std::size_t>(read);
      send(from == server ? client : server, buffer.data(), static_cast<std::size_t>(read), MSG_NOSIGNAL);
    }
    if (fault_ == Fault::stalls) {
      while (readable({client}) == client && recv(client, buffer.data(), buffer.size(), 0) > 0) {
      }
    } else if (fault_ == Fault::resets) {
      const linger atOnce{1, 0};
      setsockopt(client, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }
    close(client);
    close(server);
  }

  std::size_t bytesLeft_;
  const Fault fault_;
  int listening_ = -1;
  std::uint16_t port_ = 0;
  std::array<int, 2> end_{};
  std::thread thread_;
};

}  // namespace kx
