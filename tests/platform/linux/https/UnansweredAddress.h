#pragma once

#include <boost/asio.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace kx {

/// An address on the loopback interface whose connections are never taken: the queue of those that wait there
/// is full, so that the kernel leaves the packets of further ones unanswered.
class UnansweredAddress {
 public:
  UnansweredAddress() {
    using boost::asio::ip::tcp;
    const tcp::endpoint any(boost::asio::ip::address_v4::loopback(), 0);
    acceptor_.open(any.protocol());
    acceptor_.bind(any);
    acceptor_.listen(0);
    // More than a backlog of zero admits.
    for (int i = 0; i < 4; ++i) {
      waiting_.emplace_back(io_);
      waiting_.back().open(any.protocol());
      waiting_.back().non_blocking(true);
      boost::system::error_code inProgress;
      waiting_.back().connect(acceptor_.local_endpoint(), inProgress);
    }
  }

  std::string url() const {
    return "https://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()) + "/";
  }

 private:
  boost::asio::io_context io_;
  boost::asio::ip::tcp::acceptor acceptor_{io_};
  std::vector<boost::asio::ip::tcp::socket> waiting_;
};

}  // namespace kx
