#pragma once

namespace kx {

/// From now on the calling thread gets no socket of that family, but this error. False where this machine
/// cannot do that.
bool refuseSockets(unsigned int family, unsigned int error);

}  // namespace kx
