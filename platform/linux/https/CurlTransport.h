#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/linux/https/CurlFunctions.h"
#include "platform/linux/https/CurlRequest.h"
#include "platform/linux/https/CurlSettings.h"
#include "platform/linux/https/CurlTrust.h"

namespace kx {

/// Runs requests, all of them on one thread, "kx-transport". The thread is made when a request comes and
/// there is none, and ends when for some seconds there has been nothing to do, or when there is nothing to do
/// and a server has closed its connection. In between it sleeps in curl.
///
/// Four requests run at a time. The others wait, and are begun in the order in which they came. A request
/// that waits fails, as one that runs does, when for the time of `timeoutWithoutProgress` nothing has come
/// or gone for any. One more than may wait fails at once.
///
/// Connections live as long as the thread, TLS sessions as long as this object: a report ten minutes later
/// needs no whole handshake where the server keeps its tickets so long.
///
/// Host signal handlers never run on it, nor on curl's threads that look up names: they block every signal
/// but those of their own faults.
class CurlTransport : public std::enable_shared_from_this<CurlTransport> {
 public:
  explicit CurlTransport(CurlSettings settings) : settings_(std::move(settings)) {}

  /// Runs the request. May be called from any thread; returns at once. What goes wrong goes to the request's
  /// completion, which is called on the transport's thread or, when there can be none, here. Requests that
  /// are on their way when the process ends get no completion; those that come later fail.
  void start(std::unique_ptr<CurlRequest> request);

 private:
  class Loop;

  /// Zero, or the number of the error.
  int startThread();
  static void *threadMain(void *transport);
  void run();
  bool mayEnd();
  bool isPrepared();
  /// The one that has waited longest; null when none waits.
  std::unique_ptr<CurlRequest> takeWaiting();
  bool anyWaits();
  /// When that one fails, if there was no progress since then; absent when none waits.
  std::optional<CurlRequest::Clock::time_point> firstOverdue(CurlRequest::Clock::time_point lastProgress);
  /// Has each of those that wait fail, by `fail`.
  template <class Fail>
  void failWaiting(Fail fail);
  void setWakeable(CURLM *multi);

  struct ShareDeleter {
    void operator()(CURLSH *share) const { curl_share_cleanup(share); }
  };

  const CurlSettings settings_;

  // The thread's. One that comes later finds them as the one before has left them.
  std::unique_ptr<CurlTrust> trust_;
  std::unique_ptr<CURLSH, ShareDeleter> shared_;  ///< TLS sessions

  std::mutex mutex_;  ///< guards what follows; held for a few instructions
  std::deque<std::unique_ptr<CurlRequest>> waiting_;
  bool threadRuns_ = false;
  CURLM *multi_ = nullptr;  ///< what the thread sleeps in, while it can be woken
};

}  // namespace kx
