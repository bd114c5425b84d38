#include "tools/collector/PageServer.h"

#include <boost/asio/post.hpp>
#include <exception>
#include <utility>

#include "tools/collector/PageConnection.h"

namespace kx::collector {

namespace net = boost::asio;
using net::ip::tcp;

namespace {

constexpr std::chrono::milliseconds pauseBeforeAcceptingReaders{50};
// Many requests in a short time are told together.
constexpr std::chrono::milliseconds timeToGatherEvents{10};

}  // namespace

PageServer::PageServer(WebService &service, const tcp::endpoint &endpoint, PageLimits limits)
    : service_(service),
      limits_(limits),
      acceptor_(io_, endpoint),
      pause_(io_),
      gathering_(io_),
      port_(acceptor_.local_endpoint().port()) {
  service_.setPort(port_);
  accept();
  thread_ = std::thread([this] { run(); });
}

PageServer::~PageServer() {
  io_.stop();
  thread_.join();
}

void PageServer::wake() {
  if (isWoken_.exchange(true)) return;
  net::post(io_, [this] {
    gathering_.expires_after(timeToGatherEvents);
    gathering_.async_wait([this](boost::system::error_code error) {
      if (error) return;
      isWoken_ = false;
      for (PageConnection *connection : connections_) connection->wake();
    });
  });
}

void PageServer::run() {
  for (;;) {
    try {
      io_.run();
      return;
    } catch (const std::exception &) {
      // It has cost the connection that it came from, and nothing else.
    }
  }
}

void PageServer::accept() {
  if (connections_.size() >= limits_.maximumConnections) return acceptLater();
  acceptor_.async_accept([this](boost::system::error_code error, tcp::socket socket) {
    if (error) return acceptLater();
    std::make_shared<PageConnection>(std::move(socket), *this)->start();
    accept();
  });
}

void PageServer::acceptLater() {
  pause_.expires_after(pauseBeforeAcceptingReaders);
  pause_.async_wait([this](boost::system::error_code error) {
    if (!error) accept();
  });
}

}  // namespace kx::collector
