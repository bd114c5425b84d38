#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "platform/linux/threads/LinuxRunLoop.h"
#include "tests/platform/linux/MainLoop.h"

namespace {

/// Whether there is no memory for the calling thread.
thread_local bool isExhausted = false;

void *allocate(std::size_t size) {
  void *const memory = isExhausted ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void *operator new(std::size_t size) {
  return allocate(size);
}

void operator delete(void *memory) noexcept {
  std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}

namespace kx {
namespace {

/// GLib's own allocator is another one: it ends the process when there is nothing left.
TEST(OutOfMemory, KeepsNothingThatHasBeenHandedToTheLoopFromRunning) {
  class Target : public Object {
   public:
    void fire(const std::shared_ptr<RunLoopTimer> &) { ++fired; }
    int fired = 0;
  };
  const MainThread thread;
  LinuxRunLoopService runLoops;
  int ran = 0;
  for (int i = 0; i < 100; ++i) runLoops.linuxMainRunLoop()->perform([&ran] { ++ran; });
  const auto target = std::make_shared<Target>();
  const auto once = runLoops.timerWithTimeInterval(0, target, Selector::of<&Target::fire>("fire:"), false);
  const auto often = runLoops.timerWithTimeInterval(0, target, Selector::of<&Target::fire>("fire:"), true);
  for (const auto &timer : {once, often}) {
    runLoops.mainRunLoop()->addTimer(timer, RunLoopMode::commonModes);
  }
  isExhausted = true;
  while (ran < 100 || target->fired < 10) g_main_context_iteration(nullptr, TRUE);
  isExhausted = false;
  EXPECT_EQ(ran, 100);
  often->invalidate();
}

}  // namespace
}  // namespace kx
