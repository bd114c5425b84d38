#include "tests/platform/linux/https/TestServer.h"

#include <sys/socket.h>

#include <array>
#include <boost/beast/http.hpp>
#include <exception>
#include <limits>
#include <stdexcept>
#include <utility>

namespace kx {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;

TestConnection::TestConnection(TestServer &server, tcp::socket socket, asio::ssl::context &context)
    : server_(server), stream_(std::move(socket), context) {}

void TestConnection::handshake() {
  stream_.handshake(asio::ssl::stream_base::server);
  encrypted_ = true;
  const std::lock_guard<std::mutex> lock(server_.mutex_);
  ++server_.handshakes_;
  if (SSL_session_reused(stream_.native_handle()) == 1) ++server_.resumedHandshakes_;
}

std::size_t TestConnection::readSome(char *to, std::size_t size) {
  const asio::mutable_buffer buffer(to, size);
  return encrypted_ ? stream_.read_some(buffer) : stream_.next_layer().read_some(buffer);
}

std::string TestConnection::readRequest() {
  http::request_parser<http::string_body> parser;
  parser.eager(true);
  parser.body_limit(std::numeric_limits<std::uint64_t>::max());
  std::string bytes;
  std::size_t parsed = 0;
  while (!parser.is_done()) {
    if (unread_.empty()) {
      std::array<char, 16 * 1024> chunk{};
      unread_.assign(chunk.data(), readSome(chunk.data(), chunk.size()));
    }
    bytes += std::exchange(unread_, {});
    boost::system::error_code error;
    parsed += parser.put(asio::buffer(bytes.data() + parsed, bytes.size() - parsed), error);
    if (error && error != http::error::need_more) throw boost::system::system_error(error);
  }
  unread_ = bytes.substr(parsed);
  bytes.resize(parsed);
  const std::lock_guard<std::mutex> lock(server_.mutex_);
  server_.requests_.push_back(bytes);
  return bytes;
}

void TestConnection::readAtLeast(std::size_t size) {
  std::array<char, 16 * 1024> chunk{};
  for (std::size_t read = unread_.size(); read < size;) read += readSome(chunk.data(), chunk.size());
  unread_.clear();
}

void TestConnection::send(std::string_view bytes) {
  const auto buffer = asio::buffer(bytes.data(), bytes.size());
  if (encrypted_) {
    asio::write(stream_, buffer);
  } else {
    asio::write(stream_.next_layer(), buffer);
  }
}

void TestConnection::sendPlain(std::string_view bytes) {
  asio::write(stream_.next_layer(), asio::buffer(bytes.data(), bytes.size()));
}

void TestConnection::answer(int status, std::string_view fields, std::string_view body) {
  std::string text = "HTTP/1.1 " + std::to_string(status) + " Status\r\n";
  text += fields;
  if (status >= 200 && status != 204) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  text += "\r\n";
  text += body;
  send(text);
}

void TestConnection::stall() {
  std::array<char, 1024> chunk{};
  while (true) readSome(chunk.data(), chunk.size());
}

void TestConnection::close() {
  boost::system::error_code ignored;
  if (std::exchange(encrypted_, false)) stream_.shutdown(ignored);
  stream_.next_layer().shutdown(tcp::socket::shutdown_both, ignored);
}

void TestConnection::reset() {
  const std::lock_guard<std::mutex> lock(mutex_);
  stream_.next_layer().set_option(tcp::socket::linger(true, 0));
  stream_.next_layer().close();
}

void TestConnection::interrupt() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (stream_.next_layer().is_open()) ::shutdown(stream_.next_layer().native_handle(), SHUT_RDWR);
}

void TestConnection::end() {
  interrupt();
  const std::lock_guard<std::mutex> lock(mutex_);
  boost::system::error_code ignored;
  stream_.next_layer().close(ignored);
}

TestServer::TestServer(const collector::PemCertificate &certificate, const Options &options) {
  context_.use_certificate_chain(asio::buffer(certificate.certificate));
  context_.use_private_key(asio::buffer(certificate.privateKey), asio::ssl::context::pem);
  SSL_CTX *const native = context_.native_handle();
  SSL_CTX_set_min_proto_version(native, options.minimumVersion);
  SSL_CTX_set_max_proto_version(native, options.maximumVersion);
  if (SSL_CTX_set_cipher_list(native, options.ciphers.c_str()) != 1) throw std::invalid_argument("ciphers");
  if (!options.grantsTickets) {
    SSL_CTX_set_options(native, SSL_OP_NO_TICKET);
    SSL_CTX_set_num_tickets(native, 0);
    SSL_CTX_set_session_cache_mode(native, SSL_SESS_CACHE_OFF);
  }

  const tcp::endpoint endpoint(asio::ip::make_address(options.address), options.port);
  acceptor_.open(endpoint.protocol());
  acceptor_.set_option(tcp::acceptor::reuse_address(true));
  acceptor_.bind(endpoint);
  acceptor_.listen();
  port_ = acceptor_.local_endpoint().port();
  acceptorThread_ = std::thread([this] { accept(); });
}

TestServer::~TestServer() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    closing_ = true;
  }
  ::shutdown(acceptor_.native_handle(), SHUT_RDWR);
  acceptorThread_.join();
  interruptAll();
  for (auto &thread : threads_) thread.join();
}

void TestServer::accept() {
  while (true) {
    boost::system::error_code error;
    tcp::socket socket(io_);
    acceptor_.accept(socket, error);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (closing_) return;
    if (error) continue;
    socket.set_option(tcp::no_delay(true), error);
    Script script = script_;
    if (!nextScripts_.empty()) {
      script = std::move(nextScripts_.front());
      nextScripts_.pop_front();
    }
    connections_.push_back(std::make_shared<TestConnection>(*this, std::move(socket), context_));
    ++running_;
    threads_.emplace_back(
        [this, connection = connections_.back(), script = std::move(script)] { run(connection, script); });
  }
}

void TestServer::run(const std::shared_ptr<TestConnection> &connection, const Script &script) {
  try {
    script(*connection);
  } catch (const boost::system::system_error &) {
    // The client has gone, or the server is going.
  }
  connection->end();
  const std::lock_guard<std::mutex> lock(mutex_);
  --running_;
}

void TestServer::interruptAll() {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const auto &connection : connections_) connection->interrupt();
}

void TestServer::serve(TestConnection &connection) {
  connection.handshake();
  while (true) {
    connection.readRequest();
    connection.answer(200);
  }
}

void TestServer::setScript(Script script) {
  const std::lock_guard<std::mutex> lock(mutex_);
  script_ = std::move(script);
}

void TestServer::addScript(Script script) {
  const std::lock_guard<std::mutex> lock(mutex_);
  nextScripts_.push_back(std::move(script));
}

std::string TestServer::url(const std::string &path, const std::string &host) const {
  return "https://" + host + ":" + std::to_string(port_) + path;
}

int TestServer::connections() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<int>(connections_.size());
}

bool TestServer::isIdle() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return running_ == 0;
}

int TestServer::handshakes() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return handshakes_;
}

int TestServer::resumedHandshakes() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return resumedHandshakes_;
}

std::vector<std::string> TestServer::requests() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

}  // namespace kx
