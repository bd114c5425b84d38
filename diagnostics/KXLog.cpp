#include "KXPublisher/diagnostics/KXLog.h"

#include <array>

#include "KXPublisher/platform/Console.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/foundation/Exceptions.h"
#include "KXPublisher/platform/foundation/StringFormat.h"
#include "platform/foundation/SingleInstance.h"

namespace kx {

std::shared_ptr<KXLog> KXLog::sharedInstanceWithLogLevel(KXLogLevel logLevel) {
  return singleInstance([logLevel] { return std::shared_ptr<KXLog>(new KXLog(logLevel)); });
}

std::shared_ptr<KXLog> KXLog::sharedInstance() {
  return sharedInstanceWithLogLevel(KXLogLevelError);
}

void KXLog::log(KXLogLevel level, const std::string &message) const {
  static constexpr std::array<const char *, 5> names{"Off", "Error", "Warn", "Info", "Debug"};
  if (logLevel() < level) return;
  if (static_cast<std::uint64_t>(level) >= names.size()) {  // a negative one included
    throw RangeException(stringWithFormat("log level %ld has no name", {level}));
  }
  Platform::current().console().log(
      stringWithFormat("[KX %@] %@", {names[static_cast<std::size_t>(level)], message}));
}

}  // namespace kx
