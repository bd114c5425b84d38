#pragma once

#include <array>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "tools/collector/CollectionService.h"
#include "tools/collector/EventLog.h"
#include "tools/collector/Server.h"

namespace kx::collector {

/// One client's connection: a TLS handshake, then requests and answers in turn until either side has enough.
/// It lives as long as something of it is under way.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  using Time = std::chrono::steady_clock::time_point;
  // Of an io_context and nothing else, which takes less time than those of any executor.
  using Executor = boost::asio::io_context::executor_type;
  using Socket = boost::asio::basic_stream_socket<boost::asio::ip::tcp, Executor>;

  Connection(Socket socket, boost::asio::ssl::context &tls, CollectionService &service, EventLog &log,
             const ServerLimits &limits);

  void start();

  /// The client's address; with its port, as text.
  const boost::asio::ip::address &address() const { return address_; }
  const std::string &client() const { return client_; }

  bool isOpen() const { return stream_.next_layer().is_open(); }
  /// Since when it has been waiting for the client: for a handshake, a whole request, or the end. Absent
  /// while the client is waiting for an answer.
  std::optional<Time> idleSince() const { return idleSince_; }
  /// Closes it, since others need its place.
  void giveWay();
  /// Takes nothing new: closes it unless a request has begun to arrive, is waiting for its answer or is being
  /// answered. What a fault switch holds back is not waited for.
  void finish();

 private:
  using ErrorCode = boost::system::error_code;
  using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

  using Timer =
      boost::asio::basic_waitable_timer<std::chrono::steady_clock,
                                        boost::asio::wait_traits<std::chrono::steady_clock>, Executor>;

  void readRequest();
  /// Takes what has been received of the header, or of the body, and waits for the rest.
  void readOn();
  void receive();
  void received(ErrorCode error, std::size_t size);
  /// Of what is being read: the header, or the whole request.
  bool isRead() const { return isHeaderRead_ ? parser_->is_done() : parser_->is_header_done(); }
  void partRead(ErrorCode error) { isHeaderRead_ ? requestRead(error) : headerRead(error); }
  void headerRead(ErrorCode error);
  void requestRead(ErrorCode error);
  /// The request could not be read. Answers what can be answered, and ends the connection.
  void requestFailed(ErrorCode error);
  /// Answers it when it is kept.
  void take(const Request &request, Answer answer, bool keepAlive);
  void kept(const EventLog::Keeping &keeping, const std::shared_ptr<const Answer> &answer, bool keepAlive);
  /// As its faults want it.
  void answer(const Answer &answer, bool keepAlive);
  void respond(const Answer &answer, bool keepAlive);
  /// Sends the first half of the answer, and lets the client wait for the rest.
  void stall(const Answer &answer);
  /// As it goes over the wire.
  std::string textOf(const Answer &answer, bool keepAlive) const;
  void responded(ErrorCode error);
  void sayGoodbye();
  /// Reads on for a while: what is unread when the connection goes could cost the client its answer.
  void drain();

  /// Closes the connection when that time is over, unless another limit is set before. Beast's own timeouts
  /// let a client get away that always has sent something already.
  void limitTime(std::chrono::milliseconds time);
  /// To go off then.
  void setTimer(Time limit);
  /// The same for what the client has to do.
  void waitForClient(std::chrono::milliseconds time);
  void close();
  std::string reasonFor(ErrorCode error) const;
  /// The request as far as it has been read. What a body in chunks has after its end ("trailers") does not
  /// count as header fields.
  Request parsedRequest();

  /// Of what has been received and not been read as part of a request; has to hold a header, and one of the
  /// headers within a body in chunks.
  static constexpr std::size_t maximumBufferSize = 65536;

  boost::asio::ssl::stream<Socket> stream_;
  CollectionService &service_;
  EventLog &log_;
  const ServerLimits limits_;
  boost::asio::ip::address address_;
  std::string client_;
  Timer deadline_;
  bool isTimerSet_ = false;
  std::optional<Time> limit_;  // absent while nothing limits the connection's time
  std::string whyClosed_;      // by the server itself; otherwise empty
  std::optional<Time> idleSince_;
  std::chrono::steady_clock::time_point headerTime_;  // when the header of the request at hand had come
  std::chrono::steady_clock::time_point answering_;   // since when its answer is being sent
  boost::beast::flat_buffer buffer_{maximumBufferSize};
  std::unique_ptr<Parser> parser_;  // of the request at hand
  Request header_;                  // the same one's, without a body
  bool isHeaderRead_ = false;
  std::string response_;  // or half of it
  bool keepAlive_ = false;
  bool isFinishing_ = false;
  bool isHeldBack_ = false;  // by a fault
  Timer delay_;
  std::array<char, 4096> discarded_;
};

}  // namespace kx::collector
