#include "platform/EndedException.h"

#include "KXPublisher/diagnostics/KXLogError.h"

namespace kx {

namespace {

/// There is no memory for a line, or the host's console throws, too: then there is none.
template <class Log>
void unlessThatThrows(Log &&log) noexcept {
  try {
    log();
  } catch (...) {
  }
}

}  // namespace

void reportEndedException(const char *reason) noexcept {
  unlessThatThrows([reason] { KXLogError("An exception ended a task: %s", {reason}); });
}

void reportUseInForkedChild() noexcept {
  unlessThatThrows(
      [] { KXLogError("The process was forked after the first call. Nothing is done in this one."); });
}

}  // namespace kx
