#pragma once

#include <optional>
#include <string>

#include "platform/linux/https/CurlFunctions.h"

namespace kx {

/// What the process as a whole has to do with curl: its initialisation, and the process's end.
///
/// `exit`, and so a return from `main`, takes TLS apart while other threads still run. So before that happens
/// every thread that uses curl is stopped where it does no harm, and stays there until the process is gone.
/// The exit waits for that, normally for as long as a thread needs to wake up, at the most a second.
class CurlProcess {
 public:
  /// Whether the process is ending; then no request is run any more.
  static bool isEnding();

  /// To be called before a thread that will use curl is made. False when the process is ending, and no such
  /// thread may be made any more.
  static bool threadBegins();
  /// The thread could not be made.
  static void threadFailed();

  // The rest is for that thread. Before it touches curl for the first time, and whenever it has slept, it
  // calls `stopIfEnding`.

  /// Returns, unless the process is ending: then never.
  static void stopIfEnding();

  /// Opens curl where it has not been, and initialises it once. This is safe beside a host that does the same
  /// where `curl_version_info` names the feature CURL_VERSION_THREADSAFE: libcurl has it since 7.84, on
  /// compilers with atomic types. Absent when all is well, otherwise why not.
  static std::optional<std::string> initialise();

  /// From here on, the end of the process wakes the thread out of `curl_multi_poll`.
  static void watch(CURLM *multi);
  static void unwatch(CURLM *multi);
};

}  // namespace kx
