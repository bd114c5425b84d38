#include "tools/fleet/LoadClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>
#include <utility>

namespace kx::fleet {

namespace {

std::string textOf(const sockaddr &address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const void *bytes = &reinterpret_cast<const sockaddr_in &>(address).sin_addr;
  if (address.sa_family == AF_INET6) bytes = &reinterpret_cast<const sockaddr_in6 &>(address).sin6_addr;
  return inet_ntop(address.sa_family, bytes, text.data(), text.size()) == nullptr ? "" : text.data();
}

template <class Value>
void set(CURLcode &result, CURL *easy, CURLoption option, Value value) {
  if (result == CURLE_OK) result = curl_easy_setopt(easy, option, value);
}

}  // namespace

LoadClient::LoadClient(LoadTransport &transport, std::uint32_t itsDevice, std::uint8_t itsProcess)
    : device(itsDevice), process(itsProcess), transport_(transport), shared_(curl_share_init()) {
  if (shared_ == nullptr) throw std::bad_alloc();
  curl_share_setopt(shared_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
}

LoadClient::~LoadClient() {
  while (!exchanges.empty()) take(exchanges.size() - 1);
  disconnect();
  curl_share_cleanup(shared_);
}

bool LoadClient::connect() {
  multi = curl_multi_init();
  if (multi == nullptr) return false;
  curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, static_cast<long>(CurlSettings::maximumInFlight));
  curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, CurlSettings::maximumConnections);
  curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, CurlSettings::maximumConnections);
  curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &socketCallback);
  curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi, CURLMOPT_TIMERFUNCTION, &timerCallback);
  curl_multi_setopt(multi, CURLMOPT_TIMERDATA, this);
  return true;
}

void LoadClient::disconnect() {
  if (multi != nullptr) curl_multi_cleanup(std::exchange(multi, nullptr));
  if (timer) transport_.timers_.erase({*timer, this});
  timer.reset();
}

bool LoadClient::begin(std::unique_ptr<Exchange> exchange) {
  CurlRequest &request = *exchange->request;
  if (request.prepare(transport_.settings_, transport_.trust_, transport_.sockets_, shared_)) return false;
  if (prepare(*exchange) != CURLE_OK) return false;
  if (curl_multi_add_handle(multi, request.easy()) != CURLM_OK) return false;
  exchanges.push_back(std::move(exchange));
  return true;
}

/// What is the transport's own about a request: none of it shows on the network.
CURLcode LoadClient::prepare(Exchange &exchange) {
  CURL *const easy = exchange.request->easy();
  CURLcode result = CURLE_OK;
  set(result, easy, CURLOPT_OPENSOCKETFUNCTION, &openCallback);
  set(result, easy, CURLOPT_OPENSOCKETDATA, this);
  set(result, easy, CURLOPT_CLOSESOCKETFUNCTION, &closeCallback);
  set(result, easy, CURLOPT_CLOSESOCKETDATA, this);
  set(result, easy, CURLOPT_PREREQFUNCTION, &requestCallback);
  set(result, easy, CURLOPT_PREREQDATA, &exchange);
  set(result, easy, CURLOPT_RESOLVE, transport_.resolved_.get());
  return result;
}

std::unique_ptr<LoadClient::Exchange> LoadClient::take(std::size_t index) {
  auto exchange = std::move(exchanges[index]);
  exchanges.erase(exchanges.begin() + static_cast<std::ptrdiff_t>(index));
  curl_multi_remove_handle(multi, exchange->request->easy());
  return exchange;
}

void LoadClient::watchIdleConnections() {
  for (const int socket : sockets_) transport_.watch(*this, socket, EPOLLIN);
}

// ---- What curl tells

int LoadClient::socketCallback(CURL *, curl_socket_t socket, int what, void *client, void *) noexcept {
  auto &self = *static_cast<LoadClient *>(client);
  unsigned events = 0;
  if (what == CURL_POLL_IN || what == CURL_POLL_INOUT) events |= EPOLLIN;
  if (what == CURL_POLL_OUT || what == CURL_POLL_INOUT) events |= EPOLLOUT;
  self.transport_.watch(self, socket, events);
  return 0;
}

int LoadClient::timerCallback(CURLM *, long milliseconds, void *client) noexcept {
  auto &self = *static_cast<LoadClient *>(client);
  if (self.timer) self.transport_.timers_.erase({*self.timer, &self});
  self.timer.reset();
  if (milliseconds < 0) return 0;
  self.timer = Clock::now() + std::chrono::milliseconds(milliseconds);
  self.transport_.timers_.insert({*self.timer, &self});
  return 0;
}

curl_socket_t LoadClient::openCallback(void *client, curlsocktype, curl_sockaddr *address) noexcept {
  auto &self = *static_cast<LoadClient *>(client);
  if (!self.transport_.isAllowed(textOf(address->addr))) {
    self.wasBarred = true;
    return CURL_SOCKET_BAD;
  }
  const int socket = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  if (socket < 0) return CURL_SOCKET_BAD;
  self.sockets_.push_back(socket);
  return socket;
}

int LoadClient::closeCallback(void *client, curl_socket_t socket) noexcept {
  auto &self = *static_cast<LoadClient *>(client);
  self.transport_.watch(self, socket, 0);
  self.sockets_.erase(std::remove(self.sockets_.begin(), self.sockets_.end(), socket), self.sockets_.end());
  return ::close(socket);
}

/// The request goes out on a connection that is ready now.
int LoadClient::requestCallback(void *exchange, char *, char *, int, int) noexcept {
  auto &self = *static_cast<Exchange *>(exchange);
  CURL *const easy = self.request->easy();
  long opened = 0;
  curl_easy_getinfo(easy, CURLINFO_NUM_CONNECTS, &opened);
  self.outcome.connection = LoadOutcome::Connection::reused;
  if (opened == 0) return CURL_PREREQFUNC_OK;
  self.outcome.connection = LoadOutcome::Connection::opened;
  curl_tlssessioninfo *session = nullptr;
  curl_easy_getinfo(easy, CURLINFO_TLS_SSL_PTR, &session);
  if (session == nullptr || session->backend != CURLSSLBACKEND_OPENSSL || session->internals == nullptr)
    return CURL_PREREQFUNC_OK;
  if (SSL_session_reused(static_cast<SSL *>(session->internals)) == 1)
    self.outcome.connection = LoadOutcome::Connection::resumed;
  return CURL_PREREQFUNC_OK;
}

}  // namespace kx::fleet
