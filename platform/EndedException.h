#pragma once

#include <exception>

namespace kx {

/// Says in the library's log, at level Error, that an exception ended here, and for which reason. What an
/// adapter calls where nothing may be thrown any further; the log, which is above the seam, defines it. A
/// platform must be made before its adapters call this.
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

}  // namespace kx
