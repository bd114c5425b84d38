#pragma once

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#include "KXPublisher/platform/RunLoop.h"

namespace kx {

/// The mode by the name that the system gives it.
NSString *_Nonnull nameOf(RunLoopMode mode);

/// A thread's NSRunLoop, which is also a CFRunLoop.
class AppleRunLoop : public RunLoop {
 public:
  AppleRunLoop(NSRunLoop *_Nonnull runLoop, CFRunLoopRef _Nonnull cfRunLoop);
  ~AppleRunLoop() override;

  CFRunLoopRef _Nonnull cfRunLoop() const { return cfRunLoop_; }

  /// An NSRunLoop is for its own thread only: called on another one for the main run loop, this leaves the
  /// work to the main thread. The timer counts from its making all the same.
  void addTimer(const std::shared_ptr<RunLoopTimer> &timer, RunLoopMode mode) override;

 private:
  NSRunLoop *const _Nonnull runLoop_;
  const CFRunLoopRef _Nonnull cfRunLoop_;
};

/// The system's run loops, and timers that are NSTimers.
class AppleRunLoopService : public RunLoopService {
 public:
  AppleRunLoopService();

  std::shared_ptr<RunLoop> mainRunLoop() override { return main_; }
  std::shared_ptr<RunLoop> currentRunLoop() override;
  std::shared_ptr<RunLoopTimer> timerWithTimeInterval(double timeInterval,
                                                      const std::shared_ptr<Object> &target,
                                                      Selector selector, bool repeats) override;

 private:
  const std::shared_ptr<AppleRunLoop> main_;
};

}  // namespace kx
