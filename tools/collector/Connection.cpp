#include "tools/collector/Connection.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/status.hpp>
#include <optional>
#include <sstream>
#include <utility>

#include "tools/collector/Framing.h"

namespace kx::collector {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

namespace {

constexpr std::size_t sizeOfRecord = 16384;  // of TLS
constexpr std::size_t usualFields = 12;

std::chrono::microseconds microsecondsSince(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin);
}

/// Neither does the answer to a HEAD request have a body, nor one with these statuses.
bool mayHaveBody(http::verb method, unsigned status) {
  return method != http::verb::head && status != 204 && status != 304;
}

/// The answer to what the parser gave up on; absent when it was not the parser that failed.
std::optional<Answer> answerTo(const boost::system::error_code &error, std::size_t maximumBodySize,
                               std::size_t maximumHeaderSize) {
  Answer answer;
  if (error == http::error::body_limit) {
    answer.status = 413;
    answer.reason = "the body has more than " + std::to_string(maximumBodySize) + " bytes";
  } else if (error == http::error::header_limit) {
    answer.status = 431;
    answer.reason = "the header has more than " + std::to_string(maximumHeaderSize) + " bytes";
  } else if (error != http::error::partial_message &&
             error.category() == http::make_error_code(http::error::bad_method).category()) {
    answer.status = 400;
    answer.reason = "this is not HTTP/1.1: " + error.message();
  } else {
    return std::nullopt;
  }
  return answer;
}

Answer refusalFor(const EventLog::Keeping &keeping) {
  Answer answer;
  answer.status = keeping.status;
  answer.reason = keeping.problem;
  return answer;
}

}  // namespace

Connection::Connection(Socket socket, net::ssl::context &tls, CollectionService &service, EventLog &log,
                       const ServerLimits &limits)
    : stream_(std::move(socket), tls),
      service_(service),
      log_(log),
      limits_(limits),
      client_("a client that has gone"),
      deadline_(stream_.get_executor()),
      delay_(stream_.get_executor()) {
  // OpenSSL's buffers, 34 kB, would be freed and allocated again for each request.
  SSL_clear_mode(stream_.native_handle(), SSL_MODE_RELEASE_BUFFERS);
  ErrorCode error;
  const auto endpoint = stream_.next_layer().remote_endpoint(error);
  if (error) return;
  address_ = endpoint.address();
  std::ostringstream text;
  text << endpoint;
  client_ = text.str();
}

void Connection::start() {
  waitForClient(limits_.timeout);
  stream_.async_handshake(net::ssl::stream_base::server, [self = shared_from_this()](ErrorCode error) {
    if (error) return self->log_.failed(self->client_, "no TLS handshake: " + self->reasonFor(error));
    self->readRequest();
  });
}

void Connection::readRequest() {
  parser_ = std::make_unique<Parser>();
  parser_->header_limit(limits_.maximumHeaderSize);
  parser_->body_limit(service_.maximumBodySize());
  waitForClient(limits_.timeout);
  header_ = {};
  isHeaderRead_ = false;
  readOn();
}

void Connection::readOn() {
  // A header is looked at before anything of its body is taken.
  parser_->eager(isHeaderRead_);
  while (!isRead()) {
    if (buffer_.size() == 0) return receive();
    ErrorCode error;
    buffer_.consume(parser_->put(buffer_.data(), error));
    if (error == http::error::need_more) return receive();
    if (error) return partRead(error);
  }
  partRead({});
}

void Connection::receive() {
  const std::size_t room = buffer_.max_size() - buffer_.size();
  if (room == 0) return partRead(http::error::buffer_overflow);
  stream_.async_read_some(
      buffer_.prepare(std::min(room, sizeOfRecord)),
      [self = shared_from_this()](ErrorCode error, std::size_t size) { self->received(error, size); });
}

void Connection::received(ErrorCode error, std::size_t size) {
  buffer_.commit(size);
  if (!error) return readOn();
  if (error != net::error::eof) return partRead(error);
  if (!parser_->got_some()) return partRead(http::error::end_of_stream);
  error = {};
  parser_->put_eof(error);
  partRead(error);
}

void Connection::headerRead(ErrorCode error) {
  headerTime_ = std::chrono::steady_clock::now();
  const auto &message = parser_->get();
  header_ = {std::string(message.method_string()), std::string(message.target()), {}, {}, {}};
  header_.fields.reserve(usualFields);
  for (const auto &field : message)
    header_.fields.emplace_back(std::string(field.name_string()), std::string(field.value()));
  if (error) return requestFailed(error);
  if (const auto refusal = framingRefusal(message)) {
    Answer answer;
    answer.status = refusal->status();
    answer.reason = refusal->what();
    return take(header_, std::move(answer), /*keepAlive=*/false);
  }
  isHeaderRead_ = true;
  readOn();
}

void Connection::requestRead(ErrorCode error) {
  if (error) return requestFailed(error);
  const Request request = parsedRequest();
  take(request, service_.receive(request, std::chrono::steady_clock::now()), parser_->keep_alive());
}

void Connection::requestFailed(ErrorCode error) {
  if (error == http::error::end_of_stream) return sayGoodbye();
  if (auto answer = answerTo(error, service_.maximumBodySize(), limits_.maximumHeaderSize)) {
    return take(parsedRequest(), std::move(*answer), /*keepAlive=*/false);
  }
  // A connection that nothing was asked on may end in any way.
  if (!parser_->got_some()) return;
  log_.failed(client_, "a request has not arrived whole: " + reasonFor(error));
}

Request Connection::parsedRequest() {
  Request request = std::move(header_);
  request.body = std::move(parser_->get().body());
  request.receiveTime = microsecondsSince(headerTime_);
  return request;
}

void Connection::take(const Request &request, Answer answer, bool keepAlive) {
  limit_.reset();
  idleSince_.reset();
  const auto shared = std::make_shared<const Answer>(std::move(answer));
  log_.receive(client_, request, *shared,
               [self = shared_from_this(), shared, keepAlive](const EventLog::Keeping &keeping) {
                 net::dispatch(self->stream_.get_executor(), [self, shared, keepAlive, keeping] {
                   self->kept(keeping, shared, keepAlive);
                 });
               });
}

void Connection::kept(const EventLog::Keeping &keeping, const std::shared_ptr<const Answer> &answer,
                      bool keepAlive) {
  if (!keeping.problem.empty()) {
    if (keeping.status != 0) return respond(refusalFor(keeping), keepAlive);
    log_.failed(client_, keeping.problem);
    return close();
  }
  if (answer->delay.count() == 0) return this->answer(*answer, keepAlive);
  isHeldBack_ = true;
  delay_.expires_after(answer->delay);
  delay_.async_wait([self = shared_from_this(), answer, keepAlive](ErrorCode) {
    self->isHeldBack_ = false;
    self->answer(*answer, keepAlive);
  });
}

void Connection::answer(const Answer &answer, bool keepAlive) {
  if (answer.drop) return close();
  if (answer.stall) return stall(answer);
  respond(answer, keepAlive);
}

void Connection::stall(const Answer &answer) {
  isHeldBack_ = true;
  response_ = textOf(answer, /*keepAlive=*/true);
  response_.resize(response_.size() / 2);
  net::async_write(stream_, net::buffer(response_),
                   [self = shared_from_this(), time = answer.stall.value_or(std::chrono::milliseconds(0))](
                       ErrorCode error, std::size_t) {
                     if (error) return;
                     self->delay_.expires_after(time);
                     self->delay_.async_wait([self](ErrorCode) { self->close(); });
                   });
}

void Connection::respond(const Answer &answer, bool keepAlive) {
  keepAlive_ = keepAlive && !isFinishing_;
  response_ = textOf(answer, keepAlive_);
  limitTime(limits_.timeout);
  answering_ = std::chrono::steady_clock::now();
  net::async_write(stream_, net::buffer(response_),
                   [self = shared_from_this()](ErrorCode error, std::size_t) { self->responded(error); });
}

std::string Connection::textOf(const Answer &answer, bool keepAlive) const {
  std::string text = "HTTP/1.1 " + std::to_string(answer.status) + ' ';
  const auto phrase = http::obsolete_reason(http::int_to_status(answer.status));
  text.append(phrase.data(), phrase.size()) += "\r\n";
  const auto add = [&text](const std::string &name, const std::string &value) {
    text.append(name).append(": ").append(value) += "\r\n";
  };
  if (!keepAlive) add("Connection", "close");
  // A client of before HTTP/1.1 takes a connection for closed unless it is told.
  const bool isOld = parser_->get().version() < 11;
  if (keepAlive && isOld) add("Connection", "keep-alive");
  const bool hasBody = mayHaveBody(parser_->get().method(), answer.status);
  for (const auto &[name, value] : answer.fields()) {
    if (hasBody || name != "Content-Type") add(name, value);
  }
  std::string body;
  if (hasBody && !answer.reason.empty()) body = answer.reason + "\n";
  if (hasBody && answer.download != nullptr) body = answer.download->body;
  add("Content-Length", std::to_string(body.size()));
  return (text += "\r\n") += body;
}

void Connection::responded(ErrorCode error) {
  if (error) return log_.failed(client_, "the answer could not be sent: " + reasonFor(error));
  log_.answered(client_, microsecondsSince(answering_));
  if (keepAlive_ && !isFinishing_) return readRequest();
  sayGoodbye();
}

void Connection::sayGoodbye() {
  waitForClient(limits_.lingering);
  // It fails when the client is still sending. The farewell has been sent all the same.
  stream_.async_shutdown([self = shared_from_this()](ErrorCode) {
    ErrorCode ignored;
    self->stream_.next_layer().shutdown(net::socket_base::shutdown_send, ignored);
    self->drain();
  });
}

void Connection::drain() {
  stream_.next_layer().async_read_some(net::buffer(discarded_),
                                       [self = shared_from_this()](ErrorCode error, std::size_t) {
                                         if (!error) self->drain();
                                       });
}

void Connection::limitTime(std::chrono::milliseconds time) {
  const Time limit = std::chrono::steady_clock::now() + time;
  limit_ = limit;
  // A timer that goes off too early costs less than one that is set anew for each request.
  if (isTimerSet_ && deadline_.expiry() <= limit) return;
  setTimer(limit);
}

void Connection::setTimer(Time limit) {
  isTimerSet_ = true;
  deadline_.expires_at(limit);
  deadline_.async_wait([weakly = weak_from_this()](ErrorCode error) {
    const auto self = weakly.lock();
    // It may have been set anew since it went off.
    const auto now = std::chrono::steady_clock::now();
    if (error || self == nullptr || self->deadline_.expiry() > now) return;
    self->isTimerSet_ = false;
    if (!self->limit_) return;
    if (*self->limit_ > now) return self->setTimer(*self->limit_);
    self->whyClosed_ = "it took too long";
    self->close();
  });
}

void Connection::waitForClient(std::chrono::milliseconds time) {
  idleSince_ = std::chrono::steady_clock::now();
  limitTime(time);
}

void Connection::giveWay() {
  whyClosed_ = "it was idle for longest when others needed its place";
  close();
}

void Connection::finish() {
  isFinishing_ = true;
  const bool hasBegun = parser_ != nullptr && (parser_->got_some() || buffer_.size() != 0);
  if (isHeldBack_ || (idleSince_ && !hasBegun)) close();
}

void Connection::close() {
  ErrorCode ignored;
  stream_.next_layer().close(ignored);
}

std::string Connection::reasonFor(ErrorCode error) const {
  return whyClosed_.empty() ? error.message() : whyClosed_;
}

}  // namespace kx::collector
