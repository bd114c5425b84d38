#pragma once

namespace kx {

/// A process that the host has forked off and that goes on without an `exec`. It has a copy of the library's
/// state, in the middle of whatever the parent's other threads were doing, but none of those threads. So the
/// library stays with the parent: in the child it does nothing, says so once in the log, and neither holds
/// nor reads what the two processes would share.
///
/// A host that forks before the library's first call has nothing of that.
class ForkedChild {
 public:
  /// From the first call on, a fork counts.
  static void expect();

  /// Whether the calling process is such a child. Says so, the first time that it is asked there.
  static bool isThisProcess() noexcept;

  /// Has a child know nothing of this open file: there its number stands for one at which nothing ever
  /// happens. Once the file is closed, whatever gets its number is left to the child. What does not fit in
  /// with some dozens of open ones is kept by the child. Harmless for a negative number.
  static void keepFrom(int descriptor) noexcept;
};

}  // namespace kx
