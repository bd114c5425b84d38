#include "tools/collector/Server.h"

#include <boost/asio/buffer.hpp>
#include <exception>
#include <utility>

#include "tools/collector/Connection.h"

namespace kx::collector {

namespace net = boost::asio;
using net::ip::tcp;

namespace {

constexpr std::chrono::milliseconds pauseBeforeAccepting{50};

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
  if (static_cast<std::size_t>(connections_.use_count() - 1) >= limits_.maximumConnections)
    return acceptLater();
  acceptor_.async_accept([this](boost::system::error_code error, tcp::socket socket) {
    // Files may be short for a while.
    if (error) return acceptLater();
    auto slot = connections_;
    accept();
    std::make_shared<Connection>(std::move(socket), tls_, service_, log_, limits_, std::move(slot))->start();
  });
}

void Server::acceptLater() {
  pause_.expires_after(pauseBeforeAccepting);
  pause_.async_wait([this](boost::system::error_code error) {
    if (!error) accept();
  });
}

}  // namespace kx::collector
