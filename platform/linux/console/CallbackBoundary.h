#pragma once

#include "platform/EndedException.h"

namespace kx {

/// Runs `work` where nothing may be thrown any further: in a callback from C, or at the foot of a thread.
/// What it throws ends here, with one line in the log.
template <class Work>
void runAtBoundary(Work &&work) noexcept {
  try {
    work();
  } catch (...) {
    reportEndedException();
  }
}

}  // namespace kx
