#include "tests/tools/collector/ServerFixture.h"

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/connect.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/read.hpp>

#include "tests/support/ChildProcess.h"
#include "tests/tools/collector/Requests.h"

namespace kx::collector {

namespace net = boost::asio;
namespace http = boost::beast::http;
using net::ip::tcp;

namespace {

net::ssl::context trusting(const std::string &authorityPem) {
  net::ssl::context tls(net::ssl::context::tls_client);
  tls.add_certificate_authority(net::buffer(authorityPem));
  return tls;
}

}  // namespace

void RecordingEventLog::received(const std::string & /*client*/, const Request & /*request*/,
                                 const Answer &answer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  answers_.push_back(answer);
}

void RecordingEventLog::receive(const std::string &client, const Request &request, const Answer &answer,
                                const Kept &kept) {
  received(client, request, answer);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (isHolding_) return held_.push_back(kept);
  }
  kept({});
}

void RecordingEventLog::hold() {
  const std::lock_guard<std::mutex> lock(mutex_);
  isHolding_ = true;
}

std::size_t RecordingEventLog::held() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return held_.size();
}

void RecordingEventLog::release(const EventLog::Keeping &keeping) {
  std::vector<Kept> held;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    held.swap(held_);
  }
  for (const Kept &kept : held) kept(keeping);
}

void RecordingEventLog::failed(const std::string & /*client*/, const std::string &reason) {
  const std::lock_guard<std::mutex> lock(mutex_);
  failures_.push_back(reason);
}

void RecordingEventLog::forget() {
  const std::lock_guard<std::mutex> lock(mutex_);
  answers_.clear();
  failures_.clear();
}

std::vector<Answer> RecordingEventLog::answers() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return answers_;
}

std::vector<std::string> RecordingEventLog::failures() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return failures_;
}

Client::Client(std::uint16_t port, const std::string &authorityPem, bool handshake)
    : tls_(trusting(authorityPem)), stream_(io_, tls_) {
  stream_.set_verify_mode(net::ssl::verify_peer);
  stream_.set_verify_callback(net::ssl::host_name_verification("localhost"));
  stream_.next_layer().connect({net::ip::address_v4::loopback(), port}, error);
  if (!error && handshake) stream_.handshake(net::ssl::stream_base::client, error);
}

std::optional<Response> Client::exchange(const Request &request) {
  write(wireText(request));
  return read();
}

void Client::write(const std::string &bytes) {
  net::write(stream_, net::buffer(bytes), error);
}

void Client::writePlain(const std::string &bytes) {
  net::write(stream_.next_layer(), net::buffer(bytes), error);
}

std::optional<Response> Client::read() {
  Response response;
  error = {};
  http::read(stream_, buffer_, response, error);
  return error ? std::nullopt : std::optional<Response>(std::move(response));
}

void Client::waitForEnd() {
  std::array<char, 4096> discarded;
  error = {};
  while (!error) stream_.next_layer().read_some(net::buffer(discarded), error);
}

void Client::sayGoodbye() {
  boost::system::error_code ignored;
  stream_.shutdown(ignored);
}

void Client::vanish() {
  stream_.next_layer().close();
}

void ServerTest::TearDown() {
  io_.stop();
  if (thread_.joinable()) thread_.join();
}

std::uint16_t ServerTest::port() {
  if (!server_) {
    const auto now = std::chrono::system_clock::now();
    const PemCertificate certificate =
        authority.issue({"localhost", "127.0.0.1"}, now - std::chrono::hours(1), now + std::chrono::hours(1));
    tls_.emplace(tlsContext(certificate.certificate, certificate.privateKey));
    service_.emplace(settings);
    server_.emplace(io_, *tls_, *service_, log, tcp::endpoint(net::ip::address_v4::loopback(), 0), limits);
    port_ = server_->port();
    thread_ = std::thread([this] { server_->run(); });
  }
  return port_;
}

std::unique_ptr<Client> ServerTest::connect() {
  return std::make_unique<Client>(port(), authority.certificate().certificate);
}

std::optional<Response> ServerTest::exchange(const Request &request) {
  return connect()->exchange(request);
}

std::string ServerTest::logIn() {
  const auto response = exchange(loginRequest());
  if (!response) return "no answer";
  const auto token = (*response)["set-authorization"];
  return std::string(token.data(), token.size());
}

void ServerTest::stop(std::chrono::milliseconds time) {
  net::post(io_, [this, time] { server_->stop(time, [this] { hasStopped_ = true; }); });
}

void ServerTest::expectThatItServes() {
  const auto response = exchange(messageRequest(logIn()));
  ASSERT_TRUE(response);
  EXPECT_EQ(response->result_int(), 200u);
}

void ServerTest::expectFailure(const std::string &reason) {
  const auto isThere = [this, &reason] {
    const auto failures = log.failures();
    return std::any_of(failures.begin(), failures.end(), [&reason](const std::string &failure) {
      return failure.find(reason) != std::string::npos;
    });
  };
  EXPECT_TRUE(eventually(isThere)) << ::testing::PrintToString(log.failures());
}

void expectAnswer(const std::optional<Response> &response, unsigned status, const std::string &body) {
  ASSERT_TRUE(response);
  EXPECT_EQ(response->result_int(), status);
  EXPECT_THAT(response->body(), ::testing::HasSubstr(body));
}

std::string wireText(const Request &request) {
  std::string text = request.method + " " + request.target + " HTTP/1.1\r\n";
  for (const auto &[name, value] : request.fields) text += name + ": " + value + "\r\n";
  return text + "Content-Length: " + std::to_string(request.body.size()) + "\r\n\r\n" + request.body;
}

}  // namespace kx::collector
