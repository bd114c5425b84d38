#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/https/CurlRequest.h"
#include "tools/fleet/LoadTransport.h"

namespace kx::fleet {

/// A process of a device: its TLS sessions, while it is connected its connections, and its requests that are
/// on their way.
class LoadClient {
 public:
  using Clock = LoadTransport::Clock;

  /// A request that is on its way.
  struct Exchange {
    std::unique_ptr<CurlRequest> request;  ///< gone when it has ended, before its client may go
    LoadTransport::Completion completion;
    LoadOutcome outcome;
  };

  LoadClient(LoadTransport &transport, std::uint32_t device, std::uint8_t process);
  ~LoadClient();
  LoadClient(const LoadClient &) = delete;
  LoadClient &operator=(const LoadClient &) = delete;

  /// False where curl cannot.
  bool connect();
  void disconnect();
  bool begin(std::unique_ptr<Exchange> exchange);
  /// Takes a request out of curl's hands.
  std::unique_ptr<Exchange> take(std::size_t index);
  void watchIdleConnections();

  const std::uint32_t device;
  const std::uint8_t process;
  CURLM *multi = nullptr;  ///< while it is connected
  std::vector<std::unique_ptr<Exchange>> exchanges;
  std::optional<Clock::time_point> timer;    ///< where it is in the transport's queue
  std::optional<Clock::time_point> lingers;  ///< and there
  std::optional<Clock::time_point> sleeps;   ///< and there
  bool hasEnded = false;                     ///< its process has
  bool wasBarred = false;                    ///< from an address that is no service's

 private:
  CURLcode prepare(Exchange &exchange);

  static int socketCallback(CURL *easy, curl_socket_t socket, int what, void *client, void *) noexcept;
  static int timerCallback(CURLM *multi, long milliseconds, void *client) noexcept;
  static curl_socket_t openCallback(void *client, curlsocktype purpose, curl_sockaddr *address) noexcept;
  static int closeCallback(void *client, curl_socket_t socket) noexcept;
  static int requestCallback(void *exchange, char *, char *, int, int) noexcept;

  LoadTransport &transport_;
  CURLSH *shared_;
  std::vector<int> sockets_;
};

}  // namespace kx::fleet
