#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/string_body.hpp>
#include <memory>
#include <string>

#include "tools/collector/PageServer.h"

namespace kx::collector {

/// One reader of the page: requests and answers in turn, or an answer that comes bit by bit.
class PageConnection : public std::enable_shared_from_this<PageConnection> {
 public:
  /// It belongs to the server's connections for its life, which ends before the server's.
  PageConnection(boost::asio::ip::tcp::socket socket, PageServer &server);
  ~PageConnection();

  void start() { readRequest(); }
  /// There may be something new to tell.
  void wake();

 private:
  using ErrorCode = boost::system::error_code;
  using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

  void readRequest();
  void requestRead(ErrorCode error);
  void respond(PageAnswer answer, bool keepAlive);
  void responded(ErrorCode error);

  void beginFeed();
  void feed();
  void waitForMore();
  void feedWritten(ErrorCode error, bool isLast);
  /// Notices when the reader of a feed goes.
  void watch();

  void limitTime(std::chrono::milliseconds time);
  void close();

  PageServer &server_;
  boost::asio::ip::tcp::socket socket_;
  boost::asio::steady_timer deadline_;
  boost::asio::steady_timer nextPiece_;
  boost::beast::flat_buffer buffer_{65536};
  std::unique_ptr<Parser> parser_;
  boost::beast::http::response<boost::beast::http::string_body> response_;

  boost::beast::http::response<boost::beast::http::empty_body> header_;  // before what is fed
  std::unique_ptr<boost::beast::http::response_serializer<boost::beast::http::empty_body>> serializer_;
  std::unique_ptr<Feed> feed_;
  std::string piece_;
  bool isWaiting_ = false;
  bool isChunked_ = true;  // what is fed
  std::array<char, 512> discarded_;
};

}  // namespace kx::collector
