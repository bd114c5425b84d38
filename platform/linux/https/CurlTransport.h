#pragma once

#include <curl/curl.h>

#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/linux/https/CurlRequest.h"
#include "platform/linux/https/CurlSettings.h"

namespace kx {

/// Runs requests, all of them on one thread, "kx-transport". The thread is made when a request comes and
/// there is none, and ends when for some seconds there has been nothing to do. In between it sleeps in curl.
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

  std::optional<Error> startThread();
  static void *threadMain(void *transport);
  void run();
  bool mayEnd();
  std::vector<std::unique_ptr<CurlRequest>> takeWaiting();
  void failWaiting(const Error &error);
  void setWakeable(CURLM *multi);

  const CurlSettings settings_;

  std::mutex mutex_;  ///< guards what follows; held for a few instructions
  std::vector<std::unique_ptr<CurlRequest>> waiting_;
  bool threadRuns_ = false;
  CURLM *multi_ = nullptr;  ///< what the thread sleeps in, while it can be woken
};

}  // namespace kx
