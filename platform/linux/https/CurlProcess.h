#pragma once

#include <optional>
#include <string>

#include "platform/linux/https/CurlFunctions.h"

namespace kx {

/// What the process as a whole has to do with curl: its initialisation, the process's end, and its forks.
///
/// `exit`, and so a return from `main`, takes TLS apart while other threads still run. So before that happens
/// every thread that uses curl is stopped where it does no harm, and stays there until the process is gone.
/// The exit waits for that, normally for as long as a thread needs to wake up, at the most a second.
///
/// `fork` copies the locks of TLS as they are, and the child has no thread that would ever release one: its
/// exit alone takes some. So no thread works with curl while the process is forked. The fork waits for that,
/// normally for as long as a step of curl's takes, at the most a second, too.
class CurlProcess {
 public:
  /// Whether the process is ending; then no request is run any more.
  static bool isEnding();

  /// To be called before a thread that will use curl is made. False when the process is ending, and no such
  /// thread may be made any more.
  static bool threadBegins();
  /// The thread could not be made.
  static void threadFailed();

  // What follows is for that thread.

  /// To be called before it touches curl for the first time. Waits while the process is being forked; never
  /// returns when the process is ending.
  static void beginWork();

  /// A rest from that work, in which the thread at most sleeps in `curl_multi_poll`: the process may be
  /// forked. The work goes on where the rest ends, as it has begun. It ends with the thread.
  class Rest {
   public:
    Rest();
    ~Rest();
    Rest(const Rest &) = delete;
    Rest &operator=(const Rest &) = delete;
  };

  /// Opens curl where it has not been, and initialises it once. This is safe beside a host that does the same
  /// where `curl_version_info` names the feature CURL_VERSION_THREADSAFE: libcurl has it since 7.84, on
  /// compilers with atomic types. Absent when all is well, otherwise why not.
  static std::optional<std::string> initialise();

  /// From here on, the end of the process wakes the thread out of `curl_multi_poll`.
  static void watch(CURLM *multi);
  static void unwatch(CURLM *multi);
};

}  // namespace kx
