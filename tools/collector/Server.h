#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/collector/CollectionService.h"
#include "tools/collector/EventLog.h"

namespace kx::collector {

class Connection;

/// What one client may cost.
struct ServerLimits {
  std::uint32_t maximumHeaderSize = 8192;  // bytes
  /// When there are so many, the longest idle one goes.
  std::size_t maximumConnections = 256;
  /// The same for those of one address, so that no address keeps all others out.
  std::size_t maximumConnectionsPerAddress = 192;
  /// For a TLS handshake, for a whole request from the end of the one before it, and for taking an answer.
  std::chrono::milliseconds timeout{30000};
  /// For what a client sends after its request was refused half-way, and for its farewell.
  std::chrono::milliseconds lingering{2000};
};

/// The HTTPS server around the collection service: TLS 1.2 and later, HTTP/1.1.
///
/// Everything happens on the thread that runs the io_context, one thing at a time. A client that sends
/// something else, too much, or too slowly loses its connection, and nobody else notices. Nor does anybody
/// notice connections that are silent: they make room as soon as it is needed.
class Server {
 public:
  /// Listens from now on; port 0 stands for any free one. Throws boost::system::system_error when it cannot.
  /// All references have to outlive the io_context's last handler.
  Server(boost::asio::io_context &io, boost::asio::ssl::context &tls, CollectionService &service,
         EventLog &log, const boost::asio::ip::tcp::endpoint &endpoint, ServerLimits limits = {});

  std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

  /// How many connections are open.
  std::size_t connections();

  /// Takes no new connections and no new requests any more; calls `finished` when all that had come is
  /// answered, or that time is over.
  void stop(std::chrono::milliseconds time, const std::function<void()> &finished);

  /// Serves until the io_context is stopped.
  void run();

 private:
  void accept();
  void acceptLater();
  void admit(const std::shared_ptr<Connection> &connection);
  /// Closes the connection that has been idle for longest, among those of that address or among all. False
  /// when all of them are waiting for their answers.
  bool makeRoom(const std::optional<boost::asio::ip::address> &address);
  void forgetClosedConnections();
  void waitForConnections(std::chrono::steady_clock::time_point limit, const std::function<void()> &finished);

  boost::asio::io_context &io_;
  boost::asio::ssl::context &tls_;
  CollectionService &service_;
  EventLog &log_;
  const ServerLimits limits_;
  boost::asio::ip::tcp::acceptor acceptor_;
  boost::asio::steady_timer pause_;
  bool isStopping_ = false;
  std::vector<std::weak_ptr<Connection>> connections_;
};

/// TLS with that certificate, which may be followed by others up to the authority's. Throws
/// boost::system::system_error when one of the two cannot be used.
boost::asio::ssl::context tlsContext(const std::string &certificateChainPem,
                                     const std::string &privateKeyPem);

}  // namespace kx::collector
