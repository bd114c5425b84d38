#include "platform/linux/threads/ForkedChild.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>

#include "platform/EndedException.h"

namespace kx {

namespace {

/// Constant from the start and never destroyed: a fork may come at any moment of the process.
struct State {
  std::atomic<bool> isChild{false};
  std::atomic<bool> hasSaidSo{false};
  /// What children do not get: one more than each number, zero where there is none.
  std::array<std::atomic<int>, 48> kept{};
};

State state;

/// Runs in the child before `fork` returns there, when only what signal handlers may call may be called.
void beginChild() {
  state.isChild = true;
  const int silent = eventfd(0, EFD_CLOEXEC);
  for (auto &kept : state.kept) {
    const int descriptor = kept.exchange(0) - 1;
    if (descriptor < 0) continue;
    if (silent < 0 || dup3(silent, descriptor, O_CLOEXEC) < 0) close(descriptor);
  }
  if (silent >= 0) close(silent);
}

void replace(int entry, int by) {
  for (auto &kept : state.kept) {
    int expected = entry;
    if (kept.compare_exchange_strong(expected, by)) return;
  }
}

}  // namespace

void ForkedChild::expect() {
  [[maybe_unused]] static const int error = pthread_atfork(nullptr, nullptr, &beginChild);
}

bool ForkedChild::isThisProcess() noexcept {
  if (!state.isChild) return false;
  if (!state.hasSaidSo.exchange(true)) reportUseInForkedChild();
  return true;
}

void ForkedChild::keepFrom(int descriptor) noexcept {
  replace(0, descriptor + 1);
}

void ForkedChild::forget(int descriptor) noexcept {
  replace(descriptor + 1, 0);
}

}  // namespace kx
