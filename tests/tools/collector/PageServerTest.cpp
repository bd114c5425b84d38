#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>

#include "tests/support/ChildProcess.h"
#include "tools/collector/PageServer.h"

namespace kx::collector {
namespace {

namespace net = boost::asio;
using net::ip::tcp;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class PageServerTest : public ::testing::Test {
 protected:
  Store store;
  Faults faults;
  PageLimits limits;

  PageServer &server() {
    if (!server_) {
      service_.emplace(store, faults, CollectorStatus());
      server_.emplace(*service_, tcp::endpoint(net::ip::address_v4::loopback(), 0), limits);
      store.onChange([this] { server_->wake(); });
    }
    return *server_;
  }

  void TearDown() override {
    store.onChange({});
    server_.reset();
  }

  std::unique_ptr<tcp::socket> connect() {
    auto socket = std::make_unique<tcp::socket>(io_);
    socket->connect({net::ip::address_v4::loopback(), server().port()});
    return socket;
  }

  void ask(tcp::socket &socket, const std::string &path) {
    net::write(socket, net::buffer("GET " + path + " HTTP/1.1\r\nHost: localhost:" +
                                   std::to_string(server().port()) + "\r\n\r\n"));
  }

  /// What comes until that text has come, or the connection ends.
  static std::string readUntil(tcp::socket &socket, const std::string &end) {
    std::string text;
    boost::system::error_code error;
    net::read_until(socket, net::dynamic_buffer(text), end, error);
    return text;
  }

  /// Whether the server has closed the connection.
  static bool hasEnded(tcp::socket &socket) {
    std::array<char, 65536> discarded;
    boost::system::error_code error;
    while (!error) socket.read_some(net::buffer(discarded), error);
    return error != net::error::would_block;
  }

  /// How many files and sockets are open.
  static std::ptrdiff_t descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  }

  void append(std::size_t size) {
    Record record;
    record.kind = "other";
    record.reason = std::string(size, 'x');
    store.append(record);
  }

 private:
  net::io_context io_;
  std::optional<PageService> service_;
  std::optional<PageServer> server_;
};

TEST_F(PageServerTest, AnEventIsToldAsSoonAsItHappens) {
  const auto reader = connect();
  ask(*reader, "/api/events");
  EXPECT_THAT(readUntil(*reader, "event: faults"), StartsWith("HTTP/1.1 200 OK\r\n"));
  append(5);
  EXPECT_THAT(readUntil(*reader, "xxxxx"), HasSubstr("event: request\nid: 1\n"));
}

TEST_F(PageServerTest, AReaderThatTakesNothingLosesItsConnectionAndNobodyElseNotices) {
  limits.timeout = std::chrono::seconds(1);
  const auto slow = connect();
  ask(*slow, "/api/events");
  readUntil(*slow, "event: faults");
  const auto before = descriptors();
  for (int count = 0; count < 400; ++count) append(100000);
  auto other = connect();
  ask(*other, "/api/counts");
  EXPECT_THAT(readUntil(*other, "\"warned\""), HasSubstr("\"all\":400"));
  other.reset();
  ASSERT_TRUE(eventually([&] { return descriptors() == before - 1; }));  // the server's end has gone
  EXPECT_TRUE(hasEnded(*slow));  // and does not go on with what was missed
}

TEST_F(PageServerTest, AReaderThatAsksNothingLosesItsConnection) {
  limits.timeout = std::chrono::milliseconds(200);
  const auto silent = connect();
  EXPECT_EQ(readUntil(*silent, "never"), "");
}

TEST_F(PageServerTest, AReaderThatWaitsForLongKeepsItsConnection) {
  limits.timeout = std::chrono::seconds(1);
  const auto waiting = connect();
  ask(*waiting, "/api/wait?timeout=30");
  std::this_thread::sleep_for(std::chrono::seconds(2));
  append(1);
  EXPECT_THAT(readUntil(*waiting, "\"requests\""), HasSubstr("\"met\":true"));
}

TEST_F(PageServerTest, TooManyReadersWaitForOthersToGo) {
  limits.maximumConnections = 2;
  auto first = connect();
  const auto second = connect();
  ask(*first, "/api/events");
  ask(*second, "/api/events");
  readUntil(*first, "event: faults");
  readUntil(*second, "event: faults");
  const auto third = connect();
  ask(*third, "/api/counts");
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(third->available(), 0u);
  first.reset();
  EXPECT_THAT(readUntil(*third, "\"warned\""), HasSubstr("200 OK"));
}

TEST_F(PageServerTest, AClientOfHTTP10GetsWhatItUnderstands) {
  const auto address = "127.0.0.1:" + std::to_string(server().port());
  const auto exchange = [&](const std::string &path, const std::string &more) {
    const auto client = connect();
    net::write(*client,
               net::buffer("GET " + path + " HTTP/1.0\r\nHost: " + address + "\r\n" + more + "\r\n"));
    std::string all;
    boost::system::error_code ended;
    if (more.empty()) {
      net::read(*client, net::dynamic_buffer(all), ended);  // to its end, which must come by itself
      EXPECT_EQ(ended, net::error::eof);
    } else {
      all = readUntil(*client, "}");
    }
    return all;
  };
  append(1);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(exchange("/api/counts", ""), HasSubstr("Connection: close\r\n"));
  const std::string waited = exchange("/api/wait?timeout=0", "");
  EXPECT_THAT(waited, HasSubstr("\r\n\r\n{\"met\":true"));  // no chunks
  EXPECT_EQ(waited.find("Transfer-Encoding"), std::string::npos);
  EXPECT_EQ(waited.substr(waited.size() - 3), "]}\n");
  EXPECT_LT(std::chrono::steady_clock::now() - start, limits.timeout / 2);
  EXPECT_THAT(exchange("/api/counts", "Connection: keep-alive\r\n"), HasSubstr("Connection: keep-alive\r\n"));
}

TEST_F(PageServerTest, WhatIsNotHTTPIsRefused) {
  const auto client = connect();
  net::write(*client, net::buffer(std::string("GET\r\n\r\n")));
  EXPECT_THAT(readUntil(*client, "}"), StartsWith("HTTP/1.1 400 Bad Request\r\n"));
}

TEST_F(PageServerTest, ItMayEndWhileReadersAreThere) {
  const auto reader = connect();
  ask(*reader, "/api/events");
  readUntil(*reader, "event: faults");
  const auto waiting = connect();
  ask(*waiting, "/api/wait");
}

}  // namespace
}  // namespace kx::collector
