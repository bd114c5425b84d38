#include "platform/apple/AppleTimer.h"

#include <utility>

#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleDispatch.h"

/// The target of an NSTimer: hands each firing on.
@interface KXPublisherTimerTarget : NSObject
- (instancetype)initWithTimer:(const std::shared_ptr<kx::AppleTimer> &)timer;
- (void)fire:(NSTimer *)timer;
@end

@implementation KXPublisherTimerTarget {
  std::weak_ptr<kx::AppleTimer> _timer;
}

- (instancetype)initWithTimer:(const std::shared_ptr<kx::AppleTimer> &)timer {
  self = [super init];
  if (self != nil) _timer = timer;
  return self;
}

- (void)fire:(NSTimer *)timer {
  static_cast<void>(timer);  // the AppleTimer knows it
  kx::runAtBoundary([self] {
    if (const auto appleTimer = self->_timer.lock()) appleTimer->fire();
  });
}

@end

namespace kx {

std::shared_ptr<AppleTimer> AppleTimer::make(double timeInterval, std::shared_ptr<Object> target,
                                             Selector selector, bool repeats) {
  std::shared_ptr<AppleTimer> timer(new AppleTimer(std::move(target), selector, repeats));
  timer->timer_ = [NSTimer timerWithTimeInterval:timeInterval
                                          target:[[KXPublisherTimerTarget alloc] initWithTimer:timer]
                                        selector:@selector(fire:)
                                        userInfo:nil
                                         repeats:repeats];
  return timer;
}

AppleTimer::AppleTimer(std::shared_ptr<Object> target, Selector selector, bool repeats)
    : selector_(selector), repeats_(repeats), target_(std::move(target)) {}

bool AppleTimer::isValid() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return target_ != nullptr;
}

void AppleTimer::installOn(NSRunLoop *runLoop, NSString *mode) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (target_ == nullptr) return;
    installed_ = strong(*this);
  }
  [runLoop addTimer:timer_ forMode:mode];
}

void AppleTimer::invalidate() {
  std::shared_ptr<Object> target;  // released without the lock, like the timer's reference to itself
  std::shared_ptr<AppleTimer> installed;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    target.swap(target_);
    installed.swap(installed_);
  }
  if (target == nullptr) return;
  NSTimer *const timer = timer_;
  performOnMainThread([timer] { [timer invalidate]; });
}

void AppleTimer::fire() {
  std::shared_ptr<Object> target;
  std::shared_ptr<AppleTimer> installed;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    target = target_;
    if (!repeats_) {
      target_.reset();
      installed.swap(installed_);
    }
  }
  if (target == nullptr) return;
  if (!repeats_) [timer_ invalidate];
  selector_.perform(*target, strong(*this));
}

}  // namespace kx
