#pragma once

namespace kx {

/// A place at which another thread may come in between: where threads share something, and at every call
/// across the seam. On the simulated device a seeded schedule may switch to another task there; everywhere
/// else it is nothing. Never within a lock, which the other task might want.
///
/// Of a host's files those that include the simulated device's library are compiled with KX_SIMULATED, by its
/// own package.
#ifdef KX_SIMULATED
void yieldPoint();
#else
inline void yieldPoint() {}
#endif

}  // namespace kx
