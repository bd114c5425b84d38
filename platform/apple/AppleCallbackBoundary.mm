#include "platform/apple/AppleCallbackBoundary.h"

namespace kx {

void reportEndedException(const std::exception *exception) noexcept {
  NSLog(@"[KX Error] An exception ended a task: %s",
        exception == nullptr ? "not a std::exception" : exception->what());
}

}  // namespace kx
