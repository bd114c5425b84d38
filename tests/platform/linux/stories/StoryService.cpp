#include "tests/platform/linux/stories/StoryService.h"

#include <gio/gio.h>

#include <array>
#include <boost/beast/http.hpp>
#include <chrono>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <utility>

namespace kx {

namespace http = boost::beast::http;

namespace {

constexpr const char *loginPath = "/api_v0_0_0/do_login";
constexpr const char *messagePath = "/api_v0_0_0/post_msg";
constexpr std::size_t longestBody = std::size_t{1} << 16;
constexpr double timeoutWithoutProgress = 60;  // seconds, of requests

collector::PemCertificate certificateBy(const collector::CertificateAuthority &authority) {
  const auto now = std::chrono::system_clock::now();
  return authority.issue({"127.0.0.1"}, now - std::chrono::hours(1), now + std::chrono::hours(24));
}

std::string unpacked(const std::string &gzip) {
  const std::unique_ptr<GZlibDecompressor, void (*)(void *)> converter(
      g_zlib_decompressor_new(G_ZLIB_COMPRESSOR_FORMAT_GZIP), &g_object_unref);
  std::array<char, longestBody> text{};
  gsize read = 0;
  gsize written = 0;
  const auto result = g_converter_convert(G_CONVERTER(converter.get()), gzip.data(), gzip.size(), text.data(),
                                          text.size(), G_CONVERTER_INPUT_AT_END, &read, &written, nullptr);
  if (result != G_CONVERTER_FINISHED || read != gzip.size()) throw std::logic_error("a body that is no gzip");
  return {text.data(), written};
}

}  // namespace

/// What a request is answered by, and when.
struct StoryService::Answer {
  enum class Way {
    whole,
    interimOnly,  ///< "100 Continue", and nothing after it
    reset,        ///< before the answer, or behind its first line
    cutOff,       ///< in its header, behind a token
    nonsense,     ///< what is not HTTP
    never
  };
  Way way = Way::whole;
  int status = 200;
  std::optional<std::string> token;  ///< in its header
  double latency = 0;                ///< in seconds

  /// The token that it gives; absent: none.
  std::optional<std::string> given() const {
    return way == Way::whole && status >= 200 && status <= 299 ? token : std::nullopt;
  }
};

StoryService::StoryService(const VirtualTime &time, double latency, LibraryPromises &promises)
    : time_(time), latency_(latency), promises_(promises), server_(certificateBy(authority_)) {
  std::ofstream(authorityFile()) << authority_.certificate().certificate;
  server_.setScript([this](TestConnection &connection) { serve(connection); });
}

void StoryService::answerLoginBy(int number) {
  const std::lock_guard<std::mutex> lock(mutex_);
  logins_.push_back(number);
}

void StoryService::answerMessageBy(int number) {
  const std::lock_guard<std::mutex> lock(mutex_);
  messages_.push_back(number);
}

void StoryService::answerWell() {
  const std::lock_guard<std::mutex> lock(mutex_);
  logins_.clear();
  messages_.clear();
}

void StoryService::revokeTokens() {
  const std::lock_guard<std::mutex> lock(mutex_);
  goodTokens_.clear();
}

void StoryService::setReachable(bool isReachable) {
  if (isReachable_.exchange(isReachable) && !isReachable) {
    tell([this](LibraryPromises &promises) { promises.connectionsAreLost(time_.now()); });
    server_.interruptAll();
  }
}

void StoryService::tell(const Telling &telling) {
  const std::lock_guard<std::mutex> lock(mutex_);
  telling(promises_);
}

void StoryService::serve(TestConnection &connection) {
  if (!isReachable_) return connection.reset();
  connection.handshake();
  for (bool isFirst = true;; isFirst = false) {
    const Request request = parsed(connection.readRequest());
    if (!isReachable_) return connection.reset();  // too late
    struct InHand {
      std::atomic<int> &count;
      explicit InHand(std::atomic<int> &counted) : count(counted) { ++count; }
      ~InHand() { --count; }
    } const inHand(inHand_);
    const Answer answer = answerTo(request);
    if (answer.latency > 0) VirtualTime::wait(answer.latency);
    if (!give(answer, connection, isFirst)) return;
  }
}

StoryService::Request StoryService::parsed(const std::string &bytes) {
  http::request_parser<http::string_body> parser;
  boost::system::error_code error;
  parser.eager(true);
  parser.put(boost::asio::buffer(bytes), error);
  if (error || !parser.is_done()) throw std::logic_error("a request that is none");
  const auto &message = parser.get();
  const auto path = message.target();
  if (path != loginPath && path != messagePath) throw std::logic_error("a request for another path");
  return {path == loginPath, unpacked(message.body()), std::string(message[http::field::authorization])};
}

StoryService::Answer StoryService::answerTo(const Request &request) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto &scripted = request.isLogin ? logins_ : messages_;
  Answer answer = scripted.empty() ? ordinaryAnswer(request) : numbered(scripted.front(), request);
  if (!scripted.empty()) scripted.pop_front();
  if (const auto token = answer.given()) goodTokens_.insert(*token);
  promise(request, answer);
  return answer;
}

StoryService::Answer StoryService::ordinaryAnswer(const Request &request) {
  Answer answer;
  answer.latency = latency_;
  if (request.isLogin) {
    answer.token = "token-" + std::to_string(++tokensGiven_);
  } else if (request.authorization.rfind("Bearer ", 0) != 0 ||
             goodTokens_.count(request.authorization.substr(7)) == 0) {
    answer.status = 403;
  }
  return answer;
}

/// The numbers are those of `kindsOfAnswers`.
StoryService::Answer StoryService::numbered(int number, const Request &request) {
  Answer well;
  well.latency = latency_;
  if (request.isLogin) well.token = "token-" + std::to_string(++tokensGiven_);
  Answer answer;
  answer.latency = latency_;
  switch (number) {
    case 0:
      answer.way = Answer::Way::interimOnly;
      return answer;
    case 1:
      return answer;
    case 2:
      answer.status = 204;
      return answer;
    case 3:
      answer.status = 302;
      return answer;
    case 4:
      answer.status = 403;
      return answer;
    case 5:
      answer.status = 404;
      return answer;
    case 6:
      answer.status = 500;
      return answer;
    case 7:
      answer.way = Answer::Way::reset;
      return answer;
    case 8:
      answer.way = Answer::Way::never;
      return answer;
    case 9:
      answer.way = Answer::Way::nonsense;
      return answer;
    case 10:
      well.latency = 0;
      return well;
    case 11:
      well.latency = 59;
      return well;
    case 12:
      well.status = 500;
      return well;
    case 13:
      well.way = Answer::Way::cutOff;
      return well;
    default:
      return well;
  }
}

void StoryService::promise(const Request &request, const Answer &answer) {
  const double now = time_.now();
  if (request.isLogin) {
    const double duration = answer.way == Answer::Way::never ? timeoutWithoutProgress : answer.latency;
    promises_.loginArrives({now, now + duration, answer.given()});
    return;
  }
  promises_.messageArrives(request.text, request.authorization);
  if (answer.way == Answer::Way::whole && answer.status == 403)
    promises_.tokenIsRefused(now + answer.latency);
}

/// Whether the connection can serve another request.
bool StoryService::give(const Answer &answer, TestConnection &connection, bool isFirst) {
  const std::string token = answer.token ? "Set-Authorization: " + *answer.token + "\r\n" : "";
  switch (answer.way) {
    case Answer::Way::whole:
      connection.answer(answer.status, token);
      return true;
    case Answer::Way::interimOnly:
      connection.answer(100);
      connection.close();
      return false;
    case Answer::Way::reset:
      // A connection that is used again, and ends before a line of the answer, has the request sent once
      // more.
      if (!isFirst) connection.send("HTTP/1.1 200 Status\r\n");
      connection.reset();
      return false;
    case Answer::Way::cutOff:
      connection.send("HTTP/1.1 200 Status\r\n" + token);
      connection.reset();
      return false;
    case Answer::Way::nonsense:
      connection.send("Nothing that anybody would understand\r\n\r\n");
      connection.close();
      return false;
    case Answer::Way::never:
      connection.stall();
  }
  return false;
}

}  // namespace kx
