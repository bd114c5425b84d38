#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/platform/URLSession.h"
#include "platform/linux/https/CurlFunctions.h"
#include "platform/linux/https/CurlSettings.h"
#include "platform/linux/https/CurlSockets.h"
#include "platform/linux/https/CurlTrust.h"

namespace kx {

/// One request and what has come back so far. Made by whoever sends it, from then on used by the transport's
/// thread alone.
///
/// The answer is known once the header of the final response is complete, and it stands whatever becomes of
/// the body, which is never used. It is read, within bounds, only so that the connection can serve the next
/// request.
class CurlRequest {
 public:
  using Clock = std::chrono::steady_clock;
  /// Exactly one of the two is present.
  using Completion =
      std::function<void(const std::shared_ptr<URLResponse> &response, const std::optional<Error> &error)>;

  /// An absent body is an empty one.
  CurlRequest(URLRequest request, std::optional<Data> body, Completion completion);
  CurlRequest(const CurlRequest &) = delete;
  CurlRequest &operator=(const CurlRequest &) = delete;

  /// Has something live as long as the request does.
  void hold(std::shared_ptr<void> held) { held_ = std::move(held); }

  /// Makes the handle and starts the clock. An error when the request is one that must not be sent. A request
  /// that has not reached its server may be prepared once more.
  std::optional<Error> prepare(const CurlSettings &settings, const CurlTrust &trust, CurlSockets &sockets,
                               CURLSH *shared);

  /// The handle, owned by this object; null before `prepare`.
  CURL *easy() const { return easy_.get(); }

  /// Whether nothing of it has been sent because the server was not trusted, and that by a trust that was not
  /// whole.
  bool isBarred(CURLcode result) const {
    return result == CURLE_PEER_FAILED_VERIFICATION && !trustWasWhole_ && headerSize_ == 0;
  }

  Clock::time_point made() const { return made_; }
  /// When bytes last went in either direction, or, before they have, when it was prepared.
  Clock::time_point lastProgress() const { return lastProgress_; }
  bool hasProgressed() const { return hasProgressed_; }
  /// When it is overdue unless something happens before.
  Clock::time_point deadline() const;
  /// Whether it has taken too long, or what it receives has grown too large.
  bool isOverdue(Clock::time_point now) const;

  // Each of these calls the completion: with the answer if it is known, otherwise with an error. One
  // of them is called, once.

  /// curl is through with it.
  void end(CURLcode result) noexcept;
  /// It is overdue.
  void expire() noexcept;
  /// It could not be run.
  void fail(const Error &error) noexcept;
  /// The same, with an error that is made only here, where the memory for it may be missing.
  void fail(const char *reason) noexcept;
  void failWithErrorNumber(int number) noexcept;

 private:
  struct Deleter {
    void operator()(CURL *easy) const { curl_easy_cleanup(easy); }
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
  };

  CURLcode setOptions(const CurlSettings &settings, const CurlTrust &trust, CurlSockets &sockets,
                      CURLSH *shared);
  bool appendHeaderLine(const std::string &line);
  bool takeHeaderLine(const char *line, std::size_t size);
  bool isFollowed(long status) const;
  bool announcesBody() const;
  bool isInBody() const;
  long redirects() const;
  Error errorAfter(CURLcode result) const;
  std::shared_ptr<URLResponse> response(long status) const;
  void complete(const Error &otherwise);

  static std::size_t headerCallback(char *line, std::size_t unit, std::size_t size, void *request) noexcept;
  static std::size_t bodyCallback(char *bytes, std::size_t unit, std::size_t size, void *request) noexcept;
  static int debugCallback(CURL *easy, curl_infotype type, char *bytes, std::size_t size,
                           void *request) noexcept;

  const URLRequest request_;
  const Data body_;
  Completion completion_;
  std::shared_ptr<void> held_;
  const bool followsRedirects_;
  const Clock::time_point made_ = Clock::now();

  std::chrono::milliseconds timeoutWithoutProgress_{};
  std::chrono::milliseconds timeoutForResource_{};
  std::chrono::milliseconds bodyTime_{};
  Clock::time_point lastProgress_;
  bool hasProgressed_ = false;
  bool trustWasWhole_ = false;                 ///< when it was prepared
  Clock::time_point headerCompleted_;          ///< of the latest response that is not an interim one
  std::optional<long> redirectsBeforeHeader_;  ///< how many there had been then; absent before
  std::size_t headerSize_ = 0;                 ///< bytes, of all responses together
  std::optional<long> status_;                 ///< the final one; present once its header is complete

  std::vector<char>
      errorText_;  ///< with its room from `prepare` on: of those that wait there can be thousands
  std::unique_ptr<curl_slist, Deleter> headerLines_;
  std::unique_ptr<CURL, Deleter> easy_;  // the first to go: it refers to the others
};

}  // namespace kx
