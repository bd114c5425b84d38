#pragma once

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "tools/collector/PageService.h"

namespace kx::collector {

class PageConnection;

/// What a reader of the page may cost.
struct PageLimits {
  std::size_t maximumConnections = 64;
  std::uint32_t maximumHeaderSize = 8192;  // bytes
  std::size_t maximumBodySize = 65536;     // bytes
  /// For a whole request from the end of the one before it, and for taking an answer, or a piece of one.
  std::chrono::milliseconds timeout{30000};
};

/// The HTTP server around the page, on a thread of its own: whatever its
/// readers do, the collection service does not wait for it.
class PageServer {
 public:
  /// Listens from now on; port 0 stands for any free one. Throws boost::system::system_error when it cannot.
  PageServer(WebService &service, const boost::asio::ip::tcp::endpoint &endpoint, PageLimits limits = {});
  ~PageServer();
  PageServer(const PageServer &) = delete;
  PageServer &operator=(const PageServer &) = delete;

  std::uint16_t port() const { return port_; }
  /// To be called when there may be something new for those who wait; on any thread, and costs next to
  /// nothing.
  void wake();

 private:
  friend class PageConnection;

  void accept();
  void acceptLater();
  void run();

  WebService &service_;
  const PageLimits limits_;
  std::set<PageConnection *> connections_;  // the last of them go with the context
  boost::asio::io_context io_{1};
  boost::asio::ip::tcp::acceptor acceptor_;
  boost::asio::steady_timer pause_;
  boost::asio::steady_timer gathering_;
  std::atomic<bool> isWoken_{false};
  std::uint16_t port_ = 0;
  std::thread thread_;
};

}  // namespace kx::collector
