#pragma once

#include <vector>

#include "platform/linux/https/CurlFunctions.h"
#include "platform/linux/threads/FileIdentity.h"

namespace kx {

/// The sockets of the connections that curl has open. They are handed down neither to the programs that the
/// host starts nor to children that it forks. Used on the transport's thread alone; outlives the connections.
class CurlSockets {
 public:
  CurlSockets() = default;
  CurlSockets(const CurlSockets &) = delete;
  CurlSockets &operator=(const CurlSockets &) = delete;

  /// Has the connections that are made for this request be known here, to their end.
  CURLcode applyTo(CURL *easy);

  /// All of them, as `curl_multi_poll` takes what it shall wait for beside the requests' own.
  std::vector<curl_waitfd> &watched();
  /// Whether there is something to read on one, be it its end.
  bool speak();

 private:
  static curl_socket_t openCallback(void *sockets, curlsocktype purpose, curl_sockaddr *address) noexcept;

  struct Socket {
    int number;
    FileIdentity file;
  };

  /// Curl has no word for the end of a connection that did not come about, so this asks the system.
  void forgetClosed() noexcept;

  std::vector<Socket> open_;
  std::vector<curl_waitfd> watched_;
};

}  // namespace kx
