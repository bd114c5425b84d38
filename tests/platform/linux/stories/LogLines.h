#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace kx {

/// Everything that this process logs by GLib, its libraries' warnings among it, instead of where it would go.
/// One in a process, which stays.
class LogLines {
 public:
  LogLines();
  LogLines(const LogLines &) = delete;
  LogLines &operator=(const LogLines &) = delete;

  /// Those that have come since this was last asked.
  std::vector<std::string> takeNew();
  /// All of them, a line each.
  std::string text() const;

 private:
  struct Lines {
    std::mutex mutex;
    std::vector<std::string> all;
  };

  Lines &lines_;  ///< as long as the process: threads that outlive this object log, too
  std::size_t taken_ = 0;
};

}  // namespace kx
