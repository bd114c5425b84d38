#include "tools/collector/Server.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <exception>
#include <utility>

#include "tools/collector/Connection.h"

namespace kx::collector {

namespace net = boost::asio;
using net::ip::tcp;

namespace {

constexpr std::chrono::milliseconds pauseBeforeAccepting{50};
constexpr std::chrono::milliseconds pauseBetweenLooks{10};

}  // namespace

net::ssl::context tlsContext(const std::string &certificateChainPem, const std::string &privateKeyPem) {
  net::ssl::context tls(net::ssl::context::tls_server);
  tls.set_options(net::ssl::context::default_workarounds | net::ssl::context::no_sslv2 |
                  net::ssl::context::no_sslv3 | net::ssl::context::no_tlsv1 | net::ssl::context::no_tlsv1_1);
  // An encrypted key is refused; by itself OpenSSL would ask on the terminal.
  tls.set_password_callback([](std::size_t, net::ssl::context::password_purpose) { return std::string(); });
  tls.use_certificate_chain(net::buffer(certificateChainPem));
  tls.use_private_key(net::buffer(privateKeyPem), net::ssl::context::pem);
  return tls;
}

Server::Server(net::io_context &io, net::ssl::context &tls, CollectionService &service, EventLog &log,
               const tcp::endpoint &endpoint, ServerLimits limits)
    : io_(io), tls_(tls), service_(service), log_(log), limits_(limits), acceptor_(io, endpoint), pause_(io) {
  acceptor_.non_blocking(true);
  accept();
}

void Server::run() {
  for (;;) {
    try {
      io_.run();
      return;
    } catch (const std::exception &error) {
      // It has cost the connection that it came from, and nothing else.
      log_.failed("somewhere", error.what());
    }
  }
}

void Server::accept() {
  // Whoever is there is let in only when there is a place: the system keeps the others waiting.
  acceptor_.async_wait(tcp::acceptor::wait_read, [this](boost::system::error_code error) {
    if (isStopping_) return;
    if (error) return acceptLater();
    forgetClosedConnections();
    if (connections_.size() >= limits_.maximumConnections && !makeRoom(std::nullopt)) return acceptLater();
    Connection::Socket socket(io_);
    acceptor_.accept(socket, error);
    // Files may be short for a while.
    if (error && error != net::error::would_block) return acceptLater();
    // The answer to a client's first request would wait, 40 ms, until the client has acknowledged its TLS
    // tickets.
    if (!error) socket.set_option(net::ip::tcp::no_delay(true), error);
    if (!error) admit(std::make_shared<Connection>(std::move(socket), tls_, service_, log_, limits_));
    accept();
  });
}

void Server::admit(const std::shared_ptr<Connection> &connection) {
  const auto &address = connection->address();
  const auto siblings = std::count_if(
      connections_.begin(), connections_.end(), [&address](const std::weak_ptr<Connection> &other) {
        const auto open = other.lock();
        return open != nullptr && open->isOpen() && open->address() == address;
      });
  if (static_cast<std::size_t>(siblings) >= limits_.maximumConnectionsPerAddress && !makeRoom(address)) {
    return log_.failed(connection->client(), "its address has " + std::to_string(siblings) +
                                                 " connections that are waiting for answers; no more");
  }
  connections_.push_back(connection);
  connection->start();
}

bool Server::makeRoom(const std::optional<net::ip::address> &address) {
  std::shared_ptr<Connection> longestIdle;
  auto earliest = std::chrono::steady_clock::time_point::max();
  for (const auto &candidate : connections_) {
    auto open = candidate.lock();
    if (open == nullptr || !open->isOpen()) continue;
    const auto since = open->idleSince();
    if (!since || *since >= earliest || (address && open->address() != *address)) continue;
    earliest = *since;
    longestIdle = std::move(open);
  }
  if (longestIdle == nullptr) return false;
  longestIdle->giveWay();
  return true;
}

void Server::forgetClosedConnections() {
  const auto isClosed = [](const std::weak_ptr<Connection> &connection) {
    const auto open = connection.lock();
    return open == nullptr || !open->isOpen();
  };
  connections_.erase(std::remove_if(connections_.begin(), connections_.end(), isClosed), connections_.end());
}

void Server::acceptLater() {
  pause_.expires_after(pauseBeforeAccepting);
  pause_.async_wait([this](boost::system::error_code error) {
    if (!error && !isStopping_) accept();
  });
}

std::size_t Server::connections() {
  forgetClosedConnections();
  return connections_.size();
}

void Server::stop(std::chrono::milliseconds time, const std::function<void()> &finished) {
  isStopping_ = true;
  boost::system::error_code ignored;
  acceptor_.close(ignored);
  for (const auto &connection : connections_) {
    if (const auto open = connection.lock()) open->finish();
  }
  waitForConnections(std::chrono::steady_clock::now() + time, finished);
}

void Server::waitForConnections(std::chrono::steady_clock::time_point limit,
                                const std::function<void()> &finished) {
  if (connections() == 0 || std::chrono::steady_clock::now() >= limit) return finished();
  pause_.expires_after(pauseBetweenLooks);
  pause_.async_wait(
      [this, limit, finished](boost::system::error_code) { waitForConnections(limit, finished); });
}

}  // namespace kx::collector
