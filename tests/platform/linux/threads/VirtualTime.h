#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace kx {

/// Takes the place of the time in a test program: the clocks stand still, except where a wait of the default
/// main loop lets time pass, at once: up to what the loop waits for, or to where the wait of another thread
/// in `poll` ends, whichever comes first. Everything then happens at its exact time, on the busiest machine.
///
/// Works by the program's own `clock_gettime` and `gettimeofday`, through which GLib reads its clocks, and
/// its own `poll`. What waits otherwise, on a condition variable for a time, say, waits in real time. One
/// object at a time.
class VirtualTime {
 public:
  /// The calling thread is the one that runs the main loop.
  VirtualTime();
  ~VirtualTime();
  VirtualTime(const VirtualTime &) = delete;
  VirtualTime &operator=(const VirtualTime &) = delete;

  /// Asked before time passes: whether other threads have nothing to do but to wait for that. While they
  /// have, the clocks stand still, and it is asked again. By default it is not for others that time stands
  /// still.
  std::function<bool()> mayPass = [] { return true; };

  /// Runs the main loop for that many seconds.
  void run(double seconds);
  /// Runs the main loop, without any time, until nobody has anything to do.
  void settle();
  /// Seconds since this object was made. From any thread.
  double now() const;

  /// Lets the calling thread, which is not the main loop's, wait for so long.
  static void wait(double seconds);

  /// Time is the system's again, and no thread waits for virtual time any more. The end of this object does
  /// the same.
  void end();

  /// Lets the main thread be busy for so long.
  void block(double seconds);
  /// Sets the wall clock forward, or back, by so many seconds. A suspended device looks the same: every clock
  /// has gone on when it wakes, but the monotonic one.
  void shiftWallClock(double seconds);

  /// How long the loop was ready to wait, in milliseconds, each time that it had nothing to do; -1: for ever.
  std::vector<int> waits;
};

}  // namespace kx
