#pragma once

#include <string>
#include <vector>

namespace kx {

/// What curl is called for in this program, and curl calls: the program's own definitions of some functions
/// stand before those of the libraries.
class InterposedCalls {
 public:
  /// The names of the threads that initialised curl or made a handle of it, call by call.
  static std::vector<std::string> curlThreads();

  /// Names under "stalled.invalid" are resolved only when the process ends; under ".invalid" otherwise they
  /// are known not to exist, without a question to the network. How many of the first kind are being
  /// resolved.
  static int stalledResolutions();

  /// The file of certificate authorities that curl says it would use by itself.
  static void setSystemBundle(std::string path);

  /// Whether curl has no resources left for a transport.
  static void setExhausted(bool exhausted);

  /// How often a thread has gone to sleep in curl.
  static int polls();
};

}  // namespace kx
