#pragma once

#include <cstdint>
#include <vector>

namespace kx {

/// Takes the place of the time in a test program: the monotonic clock stands still, except where a wait of
/// the default main loop lets it pass, at once. Everything then happens at its exact time, on the busiest
/// machine.
///
/// Works by the program's own `clock_gettime` and `gettimeofday`, through which GLib reads its clocks. One at
/// a time.
class VirtualTime {
 public:
  VirtualTime();
  ~VirtualTime();
  VirtualTime(const VirtualTime &) = delete;
  VirtualTime &operator=(const VirtualTime &) = delete;

  /// Runs the main loop for that many seconds.
  void run(double seconds);
  /// Seconds since this object was made.
  double now() const;

  /// Lets the main thread be busy for so long.
  void block(double seconds);
  /// Sets the wall clock forward, or back, by so many seconds. A suspended device looks the same: every clock
  /// has gone on when it wakes, but the monotonic one.
  void shiftWallClock(double seconds);

  /// How long the loop was ready to wait, in milliseconds, each time that it had nothing to do; -1: for ever.
  std::vector<int> waits;
};

}  // namespace kx
