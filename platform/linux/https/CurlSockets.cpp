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
  if (result == CURLE_OK) result = curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &closeCallback);
  if (result == CURLE_OK) result = curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
  return result;
}

bool CurlSockets::speak() const {
  return std::any_of(open_.begin(), open_.end(), [](const curl_waitfd &socket) {
    pollfd now{socket.fd, POLLIN, 0};
    return poll(&now, 1, 0) > 0;
  });
}

curl_socket_t CurlSockets::openCallback(void *sockets, curlsocktype, curl_sockaddr *address) noexcept {
  auto &open = static_cast<CurlSockets *>(sockets)->open_;
  const int socket = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  if (socket < 0) return CURL_SOCKET_BAD;
  try {
    open.push_back({socket, CURL_WAIT_POLLIN, 0});
  } catch (const std::bad_alloc &) {
    close(socket);
    return CURL_SOCKET_BAD;
  }
  ForkedChild::keepFrom(socket);
  return socket;
}

int CurlSockets::closeCallback(void *sockets, curl_socket_t socket) noexcept {
  auto &open = static_cast<CurlSockets *>(sockets)->open_;
  open.erase(std::remove_if(open.begin(), open.end(),
                            [socket](const curl_waitfd &known) { return known.fd == socket; }),
             open.end());
  ForkedChild::forget(socket);
  return close(socket);
}

}  // namespace kx
