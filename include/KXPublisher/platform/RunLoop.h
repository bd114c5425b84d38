#pragma once

#include <memory>

#include "KXPublisher/platform/RunLoopTimer.h"
#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/Selector.h"

namespace kx {

/// In which states of a run loop something is served: only while it waits for ordinary events, or also while
/// the user drags, scrolls and the like.
enum class RunLoopMode { defaultMode, commonModes };

/// A thread's loop of events (NSRunLoop).
class KX_EXPORT RunLoop : public Object {
 public:
  /// `addTimer:forMode:`: installs a timer; from now on it fires, on this loop's thread. May be called from
  /// any thread. An invalid timer, or one that another platform made, is ignored.
  virtual void addTimer(const std::shared_ptr<RunLoopTimer> &timer, RunLoopMode mode) = 0;
};

/// The device's run loops and the making of timers. May be used from any thread.
class KX_EXPORT RunLoopService {
 public:
  virtual ~RunLoopService() = default;

  /// `mainRunLoop`: the loop of the main thread.
  virtual std::shared_ptr<RunLoop> mainRunLoop() = 0;

  /// `CFRunLoopGetCurrent`: the calling thread's own loop. It need not be running.
  virtual std::shared_ptr<RunLoop> currentRunLoop() = 0;

  /// `timerWithTimeInterval:target:selector:userInfo:repeats:`, without user information: a timer, not yet
  /// installed, that performs `selector` on `target` with itself as the argument. `timeInterval` is in
  /// seconds (0.1 ms, if it is not positive) and counts from now; a repeating timer is due at now + k x
  /// `timeInterval`, however late it fires, and does not make up for firings that it missed. Neither a change
  /// of the clock nor the time that the device sleeps counts.
  virtual std::shared_ptr<RunLoopTimer> timerWithTimeInterval(double timeInterval,
                                                              const std::shared_ptr<Object> &target,
                                                              Selector selector, bool repeats) = 0;
};

}  // namespace kx
