#pragma once

#include <openssl/ssl.h>

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tools/collector/CertificateAuthority.h"

namespace kx {

class TestServer;

/// What a test server's script has in hand: one connection, which it serves on a thread of its own with
/// blocking calls. Whatever fails, because the client has gone or the server is being closed, throws and so
/// ends the script. At the script's end the connection is closed.
class TestConnection {
 public:
  TestConnection(TestServer &server, boost::asio::ip::tcp::socket socket, boost::asio::ssl::context &context);

  /// TLS, from here on. What comes before it is plain.
  void handshake();

  /// Reads one request, up to the end of its body, and returns its bytes. The server keeps them too.
  std::string readRequest();
  /// Reads until that many bytes have come, or more.
  void readAtLeast(std::size_t size);

  void send(std::string_view bytes);
  /// The same past TLS.
  void sendPlain(std::string_view bytes);
  /// A response with a body of the length that it says; `fields` are whole lines.
  void answer(int status, std::string_view fields = "", std::string_view body = "");

  /// Waits until the client closes the connection.
  void stall();
  /// Ends the TLS session and the connection.
  void close();
  /// Ends the connection with a reset.
  void reset();

 private:
  friend class TestServer;

  std::size_t readSome(char *to, std::size_t size);
  void interrupt();
  void end();

  TestServer &server_;
  boost::asio::ssl::stream<boost::asio::ip::tcp::socket> stream_;
  std::mutex mutex_;  ///< between closing the socket here and interrupting it from outside
  bool encrypted_ = false;
  std::string unread_;  ///< what came after the request that was read last
};

/// A server on the loopback interface that does to its clients whatever a test wants: each connection is
/// served by a script. By default that is `serve`.
class TestServer {
 public:
  using Script = std::function<void(TestConnection &)>;

  struct Options {
    std::string address = "127.0.0.1";
    std::uint16_t port = 0;  ///< zero: any that is free
    int minimumVersion = TLS1_2_VERSION;
    int maximumVersion = TLS1_3_VERSION;
    std::string ciphers = "DEFAULT";  ///< of TLS 1.2 and below, in OpenSSL's words
    bool grantsTickets = true;        ///< by which later handshakes are resumed
  };

  explicit TestServer(const collector::PemCertificate &certificate) : TestServer(certificate, Options()) {}
  TestServer(const collector::PemCertificate &certificate, const Options &options);
  TestServer(const TestServer &) = delete;
  TestServer &operator=(const TestServer &) = delete;
  /// Interrupts the scripts that run and waits for them.
  ~TestServer();

  /// Answers every request with 200 and an empty body.
  static void serve(TestConnection &connection);

  /// How connections are served when there is no script for the next one.
  void setScript(Script script);
  /// How the next connections are served, one after the other.
  void addScript(Script script);

  /// Closes every connection.
  void interruptAll();

  std::uint16_t port() const { return port_; }
  std::string url(const std::string &path = "/", const std::string &host = "localhost") const;

  // What has come so far.
  int connections() const;
  bool isIdle() const;            ///< no script runs
  int handshakes() const;         ///< completed, resumed ones included
  int resumedHandshakes() const;  ///< those that went by a session of an earlier connection
  std::vector<std::string> requests() const;

 private:
  friend class TestConnection;

  void accept();
  void run(const std::shared_ptr<TestConnection> &connection, const Script &script);

  boost::asio::io_context io_;
  boost::asio::ssl::context context_{boost::asio::ssl::context::tls_server};
  boost::asio::ip::tcp::acceptor acceptor_{io_};
  std::uint16_t port_ = 0;

  mutable std::mutex mutex_;
  bool closing_ = false;
  Script script_ = &serve;
  std::deque<Script> nextScripts_;
  std::vector<std::shared_ptr<TestConnection>> connections_;
  std::vector<std::thread> threads_;
  std::vector<std::string> requests_;
  int running_ = 0;
  int handshakes_ = 0;
  int resumedHandshakes_ = 0;
  std::thread acceptorThread_;
};

}  // namespace kx
