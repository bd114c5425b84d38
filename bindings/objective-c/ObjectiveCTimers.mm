#include "bindings/objective-c/ObjectiveCTimers.h"

#include <objc/runtime.h>

#include "platform/apple/AppleDispatch.h"
#include "platform/apple/AppleObject.h"
#include "platform/apple/AppleText.h"
#include "platform/apple/AppleTimer.h"

namespace kx {

namespace {

/// A timer that the host has made and installed.
class HostTimer : public RunLoopTimer {
 public:
  explicit HostTimer(NSTimer *timer) : timer_(timer) {}

  bool isValid() const override { return [timer_ isValid]; }
  void invalidate() override {
    NSTimer *const timer = timer_;
    performOnMainThread([timer] { [timer invalidate]; });
  }

  NSTimer *systemTimer() const { return timer_; }

 private:
  NSTimer *const timer_;
};

}  // namespace

std::shared_ptr<HostTarget> HostTarget::make(id target, SEL selector) {
  return target == nil ? nullptr : std::make_shared<HostTarget>(target, selector);
}

Selector HostTarget::selectorOf(SEL selector) {
  if (selector == nullptr) return Selector();
  // The runtime's names live as long as the process.
  const SEL named = selector;
  return Selector::of<&HostTarget::fire>(sel_getName(named));
}

void HostTarget::fire(const std::shared_ptr<RunLoopTimer> &timer) {
  // While another thread gives a record its operation, the target may still be the one without.
  if (selector_ == nullptr) return;
  using Operation = void (*)(id, SEL, NSTimer *);
  const auto operation = reinterpret_cast<Operation>([target_ methodForSelector:selector_]);
  operation(target_, selector_, systemTimerOf(timer));
}

std::string HostTarget::description() const {
  return textOf([target_ description]).value_or(std::string());
}

id targetBehind(const std::shared_ptr<Object> &target) {
  const auto hostTarget = std::dynamic_pointer_cast<HostTarget>(target);
  return hostTarget != nullptr ? hostTarget->target() : standInFor(target);
}

std::shared_ptr<RunLoopTimer> timerOf(NSTimer *systemTimer) {
  return systemTimer == nil ? nullptr : std::make_shared<HostTimer>(systemTimer);
}

NSTimer *systemTimerOf(const std::shared_ptr<RunLoopTimer> &timer) {
  if (const auto appleTimer = std::dynamic_pointer_cast<AppleTimer>(timer)) return appleTimer->systemTimer();
  const auto hostTimer = std::dynamic_pointer_cast<HostTimer>(timer);
  return hostTimer == nullptr ? nil : hostTimer->systemTimer();
}

}  // namespace kx
