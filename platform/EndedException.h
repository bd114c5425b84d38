#pragma once

#include <exception>

namespace kx {

// What an adapter has to say in the library's log, at level Error. The log, which is above the seam, defines
// them. A platform must be made before its adapters call them.

/// That an exception ended here, and for which reason: called where nothing may be thrown any further.
void reportEndedException(const char *reason) noexcept;

/// The same of the exception that is being handled.
inline void reportEndedException() noexcept {
  try {
    throw;
  } catch (const std::exception &exception) {
    reportEndedException(exception.what());
  } catch (...) {
    reportEndedException("not a std::exception");
  }
}

/// That the library does nothing in this process, which was forked from the one that it works in.
void reportUseInForkedChild() noexcept;

}  // namespace kx
