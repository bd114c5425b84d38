#include "platform/linux/https/CurlSockets.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "platform/linux/threads/ForkedChild.h"

namespace kx {

CURLcode CurlSockets::applyTo(CURL *easy) {
  CURLcode result = curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &openCallback);
  if (result == CURLE_OK) result = curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, this);
  return result;
}

std::vector<curl_waitfd> &CurlSockets::watched() {
  forgetClosed();
  watched_.clear();
  for (const Socket &socket : open_) watched_.push_back({socket.number, CURL_WAIT_POLLIN, 0});
  return watched_;
}

bool CurlSockets::speak() {
  forgetClosed();
  return std::any_of(open_.begin(), open_.end(), [](const Socket &socket) {
    pollfd now{socket.number, POLLIN, 0};
    return poll(&now, 1, 0) > 0;
  });
}

void CurlSockets::forgetClosed() noexcept {
  open_.erase(std::remove_if(open_.begin(), open_.end(),
                             [](const Socket &socket) { return !socket.file.isOf(socket.number); }),
              open_.end());
}

curl_socket_t CurlSockets::openCallback(void *sockets, curlsocktype, curl_sockaddr *address) noexcept {
  auto &self = *static_cast<CurlSockets *>(sockets);
  const int socket = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  if (socket < 0) return CURL_SOCKET_BAD;
  self.forgetClosed();
  try {
    self.open_.push_back({socket, FileIdentity(socket)});
  } catch (const std::bad_alloc &) {
    close(socket);
    return CURL_SOCKET_BAD;
  }
  ForkedChild::keepFrom(socket);
  return socket;
}

}  // namespace kx
