#pragma once

#include <cstddef>

namespace kx {

/// Starts a thread that nobody waits for. The one place that makes threads of the library's own; called where
/// their nice value is to be the caller's, otherwise see `LinuxWorkerPool::startThread`.
///
/// Host signal handlers never run on it, nor on the threads that it starts in turn: every signal is blocked
/// but those of its own faults.
///
/// `stackSize`, in bytes, is what the thread itself has. The C library takes what all threads' variables
/// need, of the host and its libraries too, from the same piece of memory; that is added. Zero, or the number
/// of the error when there can be no thread.
int startDetachedThread(std::size_t stackSize, void *(*main)(void *), void *argument) noexcept;

}  // namespace kx
