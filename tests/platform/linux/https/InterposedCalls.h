#pragma once

#include <string>
#include <vector>

namespace kx {

/// What curl is called for in this program, and curl calls: the program's own definitions of some functions
/// stand before those of the libraries. Where curl is opened, this file's `dlsymOfTest` and `dlopenOfTest`
/// are what CurlOpened.cpp calls.
class InterposedCalls {
 public:
  /// The names of the threads that opened or initialised curl or made a handle of it, call by call.
  static std::vector<std::string> curlThreads();

  /// Whether the initialisation of curl, and so of TLS, has begun.
  static bool initialisationHasBegun();

  /// Whether the function that TLS was given before its initialisation, to call when it ends, was given again
  /// as the last one: so it is called before all that TLS gave itself on the way.
  static bool firstAtExitIsTheLastToo();

  /// Has that file be opened where libcurl would; an empty name for libcurl again. At the start, what the
  /// environment variable KX_TEST_CURL names.
  static void openInsteadOfCurl(const std::string &file);

  /// Names under "stalled.invalid" are resolved only when the process ends; under ".invalid" otherwise they
  /// are known not to exist, without a question to the network. How many of the first kind are being
  /// resolved.
  static int stalledResolutions();

  /// The environment variables that have been looked up since the start, or since they were forgotten, on the
  /// threads of curl: the transport's and those that look up names.
  static std::vector<std::string> environmentReads();
  static void forgetEnvironmentReads();

  /// Whether curl has no resources left, neither for a transport nor to go on with one.
  static void setExhausted(bool exhausted);

  /// From now on curl never comes back from what it does, as from a file on a server that has gone.
  static void hang();
  /// Has the transport's thread never come to its end: it hangs in the destructor of a value that it has.
  static void hangAtThreadsEnd();
  /// Whether a thread is in there.
  static bool hangs();

  /// How often a thread has gone to sleep in curl.
  static int polls();
};

}  // namespace kx
