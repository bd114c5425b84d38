#include "KXPublisher/diagnostics/KXLogError.h"

#include "KXPublisher/diagnostics/KXLog.h"

namespace kx {

void KXLogError(std::string_view format, std::initializer_list<FormatArgument> arguments) {
  const auto log = KXLog::sharedInstance();
  log->log(KXLogLevelError, stringWithFormat(format, arguments));
}

}  // namespace kx
