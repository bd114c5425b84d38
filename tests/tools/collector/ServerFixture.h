#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <csignal>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/collector/CertificateAuthority.h"
#include "tools/collector/Server.h"

namespace kx::collector {

/// What the server reports, for the test's thread.
class RecordingEventLog : public EventLog {
 public:
  void listening(const ListeningAddress &) override {}
  void received(const std::string &client, const Request &request, const Answer &answer) override;
  void receive(const std::string &client, const Request &request, const Answer &answer,
               const Kept &kept) override;
  void failed(const std::string &client, const std::string &reason) override;

  std::vector<Answer> answers() const;
  std::vector<std::string> failures() const;
  /// All answers and failures.
  void forget();

  /// From now on requests are not kept at once.
  void hold();
  /// How many wait for that.
  std::size_t held() const;
  /// All of them are kept by now, or cannot be.
  void release(const EventLog::Keeping &keeping = {});

 private:
  mutable std::mutex mutex_;
  bool isHolding_ = false;
  std::vector<Kept> held_;
  std::vector<Answer> answers_;
  std::vector<std::string> failures_;
};

using Response = boost::beast::http::response<boost::beast::http::string_body>;

/// A client that may misbehave. Its calls wait; what fails is in `error`.
class Client {
 public:
  /// Connects, and shakes hands unless told otherwise; trusts that authority only.
  Client(std::uint16_t port, const std::string &authorityPem, bool handshake = true);

  /// Sends the request and takes the answer. Absent when there is none.
  std::optional<Response> exchange(const Request &request);
  /// Sends these bytes through TLS, as far as the server takes them.
  void write(const std::string &bytes);
  /// Sends these bytes without TLS.
  void writePlain(const std::string &bytes);
  /// The next answer.
  std::optional<Response> read();
  /// Waits until the server closes the connection, and throws away what it sends until then.
  void waitForEnd();
  /// Says that nothing more will come, and waits until the server says so, too, or closes the connection.
  void sayGoodbye();
  /// Closes without a farewell.
  void vanish();

  boost::system::error_code error;

 private:
  boost::asio::io_context io_;
  boost::asio::ssl::context tls_;
  boost::asio::ssl::stream<boost::asio::ip::tcp::socket> stream_;
  boost::beast::flat_buffer buffer_;
};

/// A server on a free loopback port, running on a thread of its own.
class ServerTest : public ::testing::Test {
 protected:
  CollectionServiceSettings settings;
  ServerLimits limits;
  const CertificateAuthority authority{"Test authority"};
  RecordingEventLog log;

  void SetUp() override { std::signal(SIGPIPE, SIG_IGN); }
  void TearDown() override;

  /// Starts it, on the first call, with `settings` and `limits` as they are then.
  std::uint16_t port();
  std::unique_ptr<Client> connect();
  /// One request on a connection of its own.
  std::optional<Response> exchange(const Request &request);
  std::string logIn();
  /// Takes nothing new any more, for so long at the most.
  void stop(std::chrono::milliseconds time);
  /// Whether all connections had ended, or the time was over.
  bool hasStopped() const { return hasStopped_; }
  /// A login and a message go through.
  void expectThatItServes();
  /// What the server reports about connections comes a little later than the client notices.
  void expectFailure(const std::string &reason);

 private:
  boost::asio::io_context io_;
  std::optional<boost::asio::ssl::context> tls_;
  std::optional<CollectionService> service_;
  std::optional<Server> server_;
  std::uint16_t port_ = 0;
  std::atomic<bool> hasStopped_{false};
  std::thread thread_;
};

/// It has come, with that status, and that text is in its body.
void expectAnswer(const std::optional<Response> &response, unsigned status, const std::string &body = "");

/// The request as it goes over the wire.
std::string wireText(const Request &request);

}  // namespace kx::collector
