#include "platform/EndedException.h"

#include "KXPublisher/diagnostics/KXLogError.h"

namespace kx {

void reportEndedException(const char *reason) noexcept {
  try {
    KXLogError("An exception ended a task: %s", {reason});
  } catch (...) {
    // There is no memory for a line, or the host's console throws, too.
  }
}

}  // namespace kx
