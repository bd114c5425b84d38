#include "tools/collector/PageConnection.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/chunk_encode.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <utility>

namespace kx::collector {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

namespace {

/// Nothing from elsewhere, nothing kept, shown within nothing else.
constexpr std::pair<const char *, const char *> fieldsOfEveryAnswer[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
     "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cache-Control", "no-store"},
};

template <typename Response>
void setFields(Response &response, const PageAnswer &answer) {
  response.version(11);
  response.result(answer.status);
  for (const auto &[name, value] : fieldsOfEveryAnswer) response.set(name, value);
  if (!answer.mediaType.empty()) response.set(http::field::content_type, answer.mediaType);
  for (const auto &[name, value] : answer.fields) response.set(name, value);
}

}  // namespace

PageConnection::PageConnection(net::ip::tcp::socket socket, PageServer &server)
    : server_(server),
      socket_(std::move(socket)),
      deadline_(socket_.get_executor()),
      nextPiece_(socket_.get_executor()) {
  server_.connections_.insert(this);
}

PageConnection::~PageConnection() {
  server_.connections_.erase(this);
}

void PageConnection::readRequest() {
  parser_ = std::make_unique<Parser>();
  parser_->header_limit(server_.limits_.maximumHeaderSize);
  parser_->body_limit(server_.limits_.maximumBodySize);
  limitTime(server_.limits_.timeout);
  http::async_read(socket_, buffer_, *parser_,
                   [self = shared_from_this()](ErrorCode error, std::size_t) { self->requestRead(error); });
}

void PageConnection::requestRead(ErrorCode error) {
  if (error == http::error::body_limit) return respond(pageRefusal(413, "the body is too long"), false);
  if (error == http::error::header_limit) return respond(pageRefusal(400, "the header is too long"), false);
  if (error == http::error::end_of_stream || error == http::error::partial_message) return close();
  if (error.category() == http::make_error_code(http::error::bad_method).category()) {
    return respond(pageRefusal(400, "this is not HTTP/1.1: " + error.message()), false);
  }
  if (error) return close();
  auto &message = parser_->get();
  PageRequest request{
      std::string(message.method_string()), std::string(message.target()), {}, std::move(message.body())};
  for (const auto &field : message)
    request.fields.emplace_back(std::string(field.name_string()), std::string(field.value()));
  respond(server_.service_.answer(request, std::chrono::steady_clock::now()), message.keep_alive());
}

void PageConnection::respond(PageAnswer answer, bool keepAlive) {
  limitTime(server_.limits_.timeout);
  const bool isHead = parser_->get().method() == http::verb::head;
  const bool isOld = parser_->get().version() < 11;
  if (answer.feed && !isHead) {
    feed_ = std::move(answer.feed);
    header_ = {};
    setFields(header_, answer);
    isChunked_ = !isOld;
    return beginFeed();
  }
  response_ = {};
  setFields(response_, answer);
  response_.keep_alive(keepAlive);
  // A client of before HTTP/1.1 takes a connection for closed unless it is told.
  if (keepAlive && isOld) response_.set(http::field::connection, "keep-alive");
  response_.body() = std::move(answer.body);
  response_.prepare_payload();
  if (isHead) response_.body().clear();  // its length has been told
  http::async_write(socket_, response_,
                    [self = shared_from_this()](ErrorCode error, std::size_t) { self->responded(error); });
}

void PageConnection::responded(ErrorCode error) {
  if (error) return;
  if (response_.keep_alive()) return readRequest();
  // What is unread when the connection goes could cost the reader the answer.
  socket_.shutdown(net::socket_base::shutdown_send, error);
  watch();
}

void PageConnection::beginFeed() {
  header_.keep_alive(false);
  header_.chunked(isChunked_);
  serializer_ = std::make_unique<http::response_serializer<http::empty_body>>(header_);
  http::async_write_header(socket_, *serializer_, [self = shared_from_this()](ErrorCode error, std::size_t) {
    if (error) return;
    self->watch();
    self->feed();
  });
}

void PageConnection::feed() {
  Feed::Piece piece = feed_->next(std::chrono::steady_clock::now());
  if (piece.text.empty() && !piece.isLast) return waitForMore();
  limitTime(server_.limits_.timeout);
  piece_ = std::move(piece.text);
  const auto written = [self = shared_from_this(), isLast = piece.isLast](ErrorCode error, std::size_t) {
    self->feedWritten(error, isLast);
  };
  if (piece_.empty() && !isChunked_) return feedWritten({}, /*isLast=*/true);
  if (!isChunked_) return net::async_write(socket_, net::buffer(piece_), written);
  if (piece_.empty()) return net::async_write(socket_, http::make_chunk_last(), written);
  net::async_write(
      socket_, http::make_chunk(net::buffer(piece_)),
      [self = shared_from_this()](ErrorCode error, std::size_t) { self->feedWritten(error, false); });
}

void PageConnection::feedWritten(ErrorCode error, bool isLast) {
  if (error) return close();
  if (!isLast) return feed();
  socket_.shutdown(net::socket_base::shutdown_send, error);
}

void PageConnection::waitForMore() {
  deadline_.cancel();
  isWaiting_ = true;
  nextPiece_.expires_at(feed_->wakeUp());
  nextPiece_.async_wait([self = shared_from_this()](ErrorCode) {
    if (!std::exchange(self->isWaiting_, false) || !self->socket_.is_open()) return;
    self->feed();
  });
}

void PageConnection::wake() {
  if (isWaiting_) nextPiece_.cancel();
}

void PageConnection::watch() {
  socket_.async_read_some(net::buffer(discarded_), [self = shared_from_this()](ErrorCode error, std::size_t) {
    if (error) return self->close();
    self->watch();
  });
}

void PageConnection::limitTime(std::chrono::milliseconds time) {
  deadline_.expires_after(time);
  deadline_.async_wait([weakly = weak_from_this()](ErrorCode error) {
    const auto self = weakly.lock();
    // It may have been set anew since it went off.
    if (error || self == nullptr || self->deadline_.expiry() > net::steady_timer::clock_type::now()) return;
    self->close();
  });
}

void PageConnection::close() {
  ErrorCode ignored;
  socket_.close(ignored);
  deadline_.cancel();
  nextPiece_.cancel();
}

}  // namespace kx::collector
