#pragma once

#import <Foundation/Foundation.h>

#include <memory>
#include <mutex>

#include "KXPublisher/platform/RunLoopTimer.h"
#include "KXPublisher/platform/foundation/Selector.h"

namespace kx {

/// An NSTimer. Whether it is valid is decided here and not asked of the NSTimer, which for some time after a
/// one-shot timer has fired still says yes, and which may be invalidated on its run loop's thread only.
class AppleTimer : public RunLoopTimer {
 public:
  /// A timer that is not installed yet; see `RunLoopService::timerWithTimeInterval`.
  static std::shared_ptr<AppleTimer> make(double timeInterval, std::shared_ptr<Object> target,
                                          Selector selector, bool repeats);

  bool isValid() const override;
  void invalidate() override;

  /// Installs the timer, if it is still valid. Until it is invalidated or has fired for the last time it
  /// keeps itself alive.
  void installOn(NSRunLoop *_Nonnull runLoop, NSString *_Nonnull mode);

  /// The NSTimer itself.
  NSTimer *_Nonnull systemTimer() const { return timer_; }

  /// What the NSTimer calls, on its run loop's thread.
  void fire();

 private:
  AppleTimer(std::shared_ptr<Object> target, Selector selector, bool repeats);

  const Selector selector_;
  const bool repeats_;
  NSTimer *_Null_unspecified timer_ = nil;  ///< set once, while the timer is made

  mutable std::mutex mutex_;
  std::shared_ptr<Object> target_;         ///< null: invalid
  std::shared_ptr<AppleTimer> installed_;  ///< itself
};

}  // namespace kx
