#include "platform/linux/threads/ForkedChild.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <mutex>

#include "platform/EndedException.h"
#include "platform/linux/threads/FileIdentity.h"

namespace kx {

namespace {

/// A file that children do not get.
struct Kept {
  std::atomic<int> entry{0};  ///< one more than the number of the file; zero while the rest is not valid
  FileIdentity file;
};

/// Constant from the start and never destroyed: a fork may come at any moment of the process.
struct State {
  std::atomic<bool> isChild{false};
  std::atomic<bool> hasSaidSo{false};
  std::mutex mutex;  ///< between those that change what is kept; a child does not ask for it
  std::array<Kept, 48> kept{};
};

State state;

/// Runs in the child before `fork` returns there, when only what signal handlers may call may be called.
void beginChild() {
  state.isChild = true;
  const int silent = eventfd(0, EFD_CLOEXEC);
  for (auto &kept : state.kept) {
    const int descriptor = kept.entry.exchange(0) - 1;
    if (descriptor < 0 || !kept.file.isOf(descriptor)) continue;
    if (silent < 0 || dup3(silent, descriptor, O_CLOEXEC) < 0) close(descriptor);
  }
  if (silent >= 0) close(silent);
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
  if (descriptor < 0) return;
  const FileIdentity file(descriptor);
  const std::lock_guard<std::mutex> lock(state.mutex);
  for (auto &kept : state.kept) {
    const int known = kept.entry - 1;
    if (known >= 0 && kept.file.isOf(known)) continue;
    kept.entry = 0;
    kept.file = file;
    kept.entry = descriptor + 1;
    return;
  }
}

}  // namespace kx
