#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// How much is printed: 0 "Off", 1 "Error", 2 "Warn", 3 "Info", 4 "Debug". Any other number can be passed
/// too; see `KXLog::log`.
using KXLogLevel = std::int64_t;
inline constexpr KXLogLevel KXLogLevelOff = 0;
inline constexpr KXLogLevel KXLogLevelError = 1;
inline constexpr KXLogLevel KXLogLevelWarn = 2;
inline constexpr KXLogLevel KXLogLevelInfo = 3;
inline constexpr KXLogLevel KXLogLevelDebug = 4;

/// The library's own log, written to the device's console. There is one in a process. Everything may be
/// called from any thread.
class KX_EXPORT KXLog : public Object {
 public:
  /// `sharedInstanceWithLogLevel:`: the one log. The first call in the process makes it with that level;
  /// later calls ignore the argument.
  static std::shared_ptr<KXLog> sharedInstanceWithLogLevel(KXLogLevel logLevel);

  /// `sharedInstance`: the one log, made at level 1 (Error) unless it exists.
  static std::shared_ptr<KXLog> sharedInstance();

  /// `logLevel`: the highest level that is printed.
  KXLogLevel logLevel() const { return logLevel_; }
  /// `setLogLevel:`
  void setLogLevel(KXLogLevel logLevel) { logLevel_ = logLevel; }

  /// `log:message:`: prints "[KX %@] %@" of the level's name and `message` when `level` is not above
  /// `logLevel`; that comparison is the only filter, so a message at level 0 is printed, labelled "Off".
  /// Throws `RangeException` when the level passes the filter and has no name.
  void log(KXLogLevel level, const std::string &message) const;

 private:
  explicit KXLog(KXLogLevel logLevel) : logLevel_(logLevel) {}

  std::atomic<KXLogLevel> logLevel_;
};

}  // namespace kx
