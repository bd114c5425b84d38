#pragma once

#include <exception>

namespace kx {

/// Says on the console that an exception ended here. Null: one that is no `std::exception`.
void reportEndedException(const std::exception *exception) noexcept;

/// Runs `work` where nothing may be thrown any further: in a callback from C, or at the foot of a thread.
/// What it throws ends here, with one line on the console.
template <class Work>
void runAtBoundary(Work &&work) noexcept {
  try {
    work();
  } catch (const std::exception &exception) {
    reportEndedException(&exception);
  } catch (...) {
    reportEndedException(nullptr);
  }
}

}  // namespace kx
