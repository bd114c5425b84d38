#pragma once

#include "KXPublisher/platform/URLSession.h"
#include "platform/EndedException.h"

namespace kx {

/// Finishes a session at the end of the scope, however that is left: one that nobody finishes is never
/// released by the platform.
struct FinishAndInvalidate {
  URLSession &session;

  ~FinishAndInvalidate() {
    try {
      session.finishTasksAndInvalidate();
    } catch (...) {
      reportEndedException();
    }
  }
};

}  // namespace kx
