#include "platform/apple/AppleCallbackBoundary.h"

#include "platform/apple/AppleText.h"

namespace kx {

void reportEndedException(id exception) noexcept {
  try {
    std::optional<std::string> reason;
    if ([exception isKindOfClass:[NSException class]]) {
      NSException *const raised = static_cast<NSException *>(exception);
      reason =
          textOf(raised.name).value_or(std::string()) + ": " + textOf(raised.reason).value_or(std::string());
    } else {
      reason = textOf([exception description]);
    }
    reportEndedException(reason.value_or(std::string()).c_str());
  } catch (...) {
    reportEndedException("an object that cannot be described");
  }
}

}  // namespace kx
