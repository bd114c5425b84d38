#include "tests/platform/linux/threads/VirtualTime.h"

#include <glib.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <ctime>
#include <mutex>
#include <thread>

namespace {

constexpr std::int64_t nanosecondsInSecond = 1'000'000'000;
constexpr std::int64_t nanosecondsInMillisecond = 1'000'000;
constexpr std::int64_t start = 1000 * nanosecondsInSecond;
constexpr std::int64_t breath = nanosecondsInMillisecond / 10;  // of real time

// The library's workers ask for the time, too.
std::atomic<bool> isVirtual{false};
std::atomic<std::int64_t> monotonic{start};  // nanoseconds, like the next ones
std::atomic<std::int64_t> wallClockStart{0};
std::atomic<std::int64_t> wallClockShift{0};
std::int64_t runEnd = start;
kx::VirtualTime *current = nullptr;
std::atomic<std::thread::id> mainThread{};

std::int64_t nanoseconds(double seconds) {
  return std::llround(seconds * static_cast<double>(nanosecondsInSecond));
}

timespec timeOf(std::int64_t nanoseconds) {
  timespec time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(nanoseconds / nanosecondsInSecond);
  time.tv_nsec = static_cast<decltype(time.tv_nsec)>(nanoseconds % nanosecondsInSecond);
  return time;
}

std::int64_t systemClock(clockid_t clock) {
  timespec time{};
  syscall(SYS_clock_gettime, clock, &time);
  return time.tv_sec * nanosecondsInSecond + time.tv_nsec;
}

std::int64_t wallClock() {
  if (!isVirtual) return systemClock(CLOCK_REALTIME);
  return wallClockStart + (monotonic - start) + wallClockShift;
}

/// In real time, for so many nanoseconds at the most; negative: for ever.
int systemPoll(pollfd *descriptors, nfds_t count, std::int64_t patience) {
  timespec time = timeOf(patience);
  return static_cast<int>(syscall(SYS_ppoll, descriptors, count, patience < 0 ? nullptr : &time, nullptr, 0));
}

// ---- Waits of other threads

/// Wakes one thread out of its wait.
class WakeUp {
 public:
  WakeUp() = default;
  WakeUp(const WakeUp &) = delete;
  WakeUp &operator=(const WakeUp &) = delete;
  ~WakeUp() { close(descriptor_); }

  int descriptor() const { return descriptor_; }
  void send() const { eventfd_write(descriptor_, 1); }

 private:
  const int descriptor_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
};

struct Wait {
  std::int64_t due;
  const WakeUp *wakeUp;
};

std::mutex mutex;  // guards the next one
std::vector<const Wait *> &otherWaits = *new std::vector<const Wait *>;

int waitVirtually(pollfd *descriptors, nfds_t count, int timeout) {
  const WakeUp wakeUp;
  std::vector<pollfd> all(descriptors, descriptors + count);
  all.push_back({wakeUp.descriptor(), POLLIN, 0});
  Wait wait{0, &wakeUp};
  {
    const std::lock_guard<std::mutex> lock(mutex);
    wait.due = monotonic + timeout * nanosecondsInMillisecond;
    otherWaits.push_back(&wait);
  }
  const int ready = systemPoll(all.data(), all.size(), -1);
  {
    const std::lock_guard<std::mutex> lock(mutex);
    otherWaits.erase(std::find(otherWaits.begin(), otherWaits.end(), &wait));
  }
  std::copy(all.begin(), all.end() - 1, descriptors);
  return all.back().revents != 0 && ready > 0 ? ready - 1 : ready;
}

/// Lets time pass up to then, or to where the first wait ends.
void pass(std::int64_t until) {
  const std::lock_guard<std::mutex> lock(mutex);
  for (const Wait *const wait : otherWaits) until = std::min(until, wait->due);
  monotonic = std::max(monotonic.load(), until);
  for (const Wait *const wait : otherWaits) {
    if (wait->due <= monotonic) wait->wakeUp->send();
  }
}

// ---- The main loop's

gint pollOfMainLoop(GPollFD *gDescriptors, guint count, gint timeout) {
  auto *const descriptors = reinterpret_cast<pollfd *>(gDescriptors);
  while (true) {
    const bool maySleep = timeout != 0 && current->mayPass();
    const int ready = systemPoll(descriptors, count, 0);
    if (ready != 0 || timeout == 0) return ready;
    if (maySleep) break;
    if (systemPoll(descriptors, count, breath) != 0) return systemPoll(descriptors, count, 0);
  }
  current->waits.push_back(timeout);
  pass(timeout < 0 ? runEnd : std::min(monotonic + timeout * nanosecondsInMillisecond, runEnd));
  return 0;
}

}  // namespace

// What every library of this program calls.
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec *time) {
  std::int64_t now = 0;
  if (isVirtual && (clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE)) {
    now = monotonic;
  } else if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) {
    now = wallClock();
  } else {
    now = systemClock(clock);
  }
  *time = timeOf(now);
  return 0;
}

// From which GLib has the wall clock.
extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval *time, void * /*zone*/) noexcept {
  const timespec now = timeOf(wallClock());
  time->tv_sec = now.tv_sec;
  time->tv_usec = now.tv_nsec / 1000;
  return 0;
}

// In which curl, and GLib's other threads, wait.
extern "C" __attribute__((visibility("default"))) int poll(pollfd *descriptors, nfds_t count, int timeout) {
  if (isVirtual && timeout > 0 && std::this_thread::get_id() != mainThread) {
    return waitVirtually(descriptors, count, timeout);
  }
  return systemPoll(descriptors, count, timeout * nanosecondsInMillisecond);
}

namespace kx {

VirtualTime::VirtualTime() {
  monotonic = start;
  wallClockStart = systemClock(CLOCK_REALTIME);
  mainThread = std::this_thread::get_id();
  current = this;
  isVirtual = true;
  g_main_context_set_poll_func(nullptr, &pollOfMainLoop);
}

VirtualTime::~VirtualTime() {
  end();
  current = nullptr;
}

void VirtualTime::end() {
  if (!isVirtual) return;
  g_main_context_set_poll_func(nullptr, nullptr);
  isVirtual = false;
  wallClockShift = 0;
  const std::lock_guard<std::mutex> lock(mutex);
  for (const Wait *const wait : otherWaits) wait->wakeUp->send();
}

void VirtualTime::run(double seconds) {
  runEnd = monotonic + nanoseconds(seconds);
  while (monotonic < runEnd) g_main_context_iteration(nullptr, TRUE);
  // What falls due at the very end belongs to it.
  settle();
}

void VirtualTime::settle() {
  while (true) {
    const bool othersRest = mayPass();
    bool wasBusy = false;
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) wasBusy = true;
    if (othersRest && !wasBusy) return;
    if (!othersRest) systemPoll(nullptr, 0, breath);
  }
}

double VirtualTime::now() const {
  return static_cast<double>(monotonic - start) / static_cast<double>(nanosecondsInSecond);
}

void VirtualTime::wait(double seconds) {
  poll(nullptr, 0, static_cast<int>(std::lround(seconds * 1000)));
}

void VirtualTime::block(double seconds) {
  monotonic += nanoseconds(seconds);
}

void VirtualTime::shiftWallClock(double seconds) {
  wallClockShift += nanoseconds(seconds);
}

}  // namespace kx
