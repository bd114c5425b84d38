#include "tests/platform/linux/threads/VirtualTime.h"

#include <glib.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <ctime>

namespace {

constexpr std::int64_t nanosecondsInSecond = 1'000'000'000;
constexpr std::int64_t nanosecondsInMillisecond = 1'000'000;
constexpr std::int64_t start = 1000 * nanosecondsInSecond;

// The library's workers ask for the time, too.
std::atomic<bool> isVirtual{false};
std::atomic<std::int64_t> monotonic{start};  // nanoseconds, like the next ones
std::atomic<std::int64_t> wallClockShift{0};
std::int64_t runEnd = start;
kx::VirtualTime *current = nullptr;

std::int64_t nanoseconds(double seconds) {
  return std::llround(seconds * static_cast<double>(nanosecondsInSecond));
}

std::int64_t systemClock(clockid_t clock) {
  timespec time{};
  syscall(SYS_clock_gettime, clock, &time);
  return time.tv_sec * nanosecondsInSecond + time.tv_nsec;
}

gint waitVirtually(GPollFD *descriptors, guint count, gint timeout) {
  const int ready = poll(reinterpret_cast<pollfd *>(descriptors), count, 0);
  if (ready != 0 || timeout == 0) return ready;
  current->waits.push_back(timeout);
  const std::int64_t due = timeout < 0 ? runEnd : monotonic + timeout * nanosecondsInMillisecond;
  monotonic = std::max(monotonic.load(), std::min(due, runEnd));
  return 0;
}

}  // namespace

// What every library of this program calls.
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec *time) {
  const bool ofMonotonic = clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE;
  const std::int64_t now = isVirtual && ofMonotonic
                               ? monotonic.load()
                               : systemClock(clock) + (ofMonotonic ? 0 : wallClockShift.load());
  time->tv_sec = now / nanosecondsInSecond;
  time->tv_nsec = now % nanosecondsInSecond;
  return 0;
}

// From which GLib has the wall clock.
extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval *time, void * /*zone*/) noexcept {
  const std::int64_t now = systemClock(CLOCK_REALTIME) + wallClockShift;
  time->tv_sec = now / nanosecondsInSecond;
  time->tv_usec = now % nanosecondsInSecond / 1000;
  return 0;
}

namespace kx {

VirtualTime::VirtualTime() {
  monotonic = start;
  isVirtual = true;
  current = this;
  g_main_context_set_poll_func(nullptr, &waitVirtually);
}

VirtualTime::~VirtualTime() {
  g_main_context_set_poll_func(nullptr, nullptr);
  isVirtual = false;
  wallClockShift = 0;
  current = nullptr;
}

void VirtualTime::run(double seconds) {
  runEnd = monotonic + nanoseconds(seconds);
  while (monotonic < runEnd) g_main_context_iteration(nullptr, TRUE);
  // What falls due at the very end belongs to it.
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
  }
}

double VirtualTime::now() const {
  return static_cast<double>(monotonic - start) / static_cast<double>(nanosecondsInSecond);
}

void VirtualTime::block(double seconds) {
  monotonic += nanoseconds(seconds);
}

void VirtualTime::shiftWallClock(double seconds) {
  wallClockShift += nanoseconds(seconds);
}

}  // namespace kx
