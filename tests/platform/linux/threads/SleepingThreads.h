#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace kx {

/// Tells whether all the threads around sleep: those of this process but for the calling one, and those of
/// others that work for it. By what the kernel says of them, so that none of them need know.
class SleepingThreads {
 public:
  /// `others`: the processes beside this one. None of them starts programs of its own.
  explicit SleepingThreads(const std::vector<pid_t> &others);

  /// Whether there was a moment, during this call, at which all slept and nothing was on its way between
  /// them. Then they sleep on, until the calling thread, the clock or somebody outside wakes one.
  bool allSleep();

 private:
  /// How often each thread has gone to sleep.
  using Sleeps = std::map<pid_t, long>;

  /// False when one does not sleep.
  bool look(Sleeps &sleeps) const;

  std::vector<std::string> folders_;  ///< of the processes' threads
};

}  // namespace kx
