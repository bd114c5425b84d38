#include "platform/apple/AppleRunLoop.h"

#include <utility>

#include "platform/apple/AppleDispatch.h"
#include "platform/apple/AppleTimer.h"

namespace kx {

NSString *nameOf(RunLoopMode mode) {
  return mode == RunLoopMode::commonModes ? NSRunLoopCommonModes : NSDefaultRunLoopMode;
}

AppleRunLoop::AppleRunLoop(NSRunLoop *runLoop, CFRunLoopRef cfRunLoop)
    : runLoop_(runLoop), cfRunLoop_(cfRunLoop) {
  CFRetain(cfRunLoop_);
}

AppleRunLoop::~AppleRunLoop() {
  CFRelease(cfRunLoop_);
}

void AppleRunLoop::addTimer(const std::shared_ptr<RunLoopTimer> &timer, RunLoopMode mode) {
  auto appleTimer = std::dynamic_pointer_cast<AppleTimer>(timer);
  if (appleTimer == nullptr) return;
  NSRunLoop *const runLoop = runLoop_;
  if (cfRunLoop_ == CFRunLoopGetMain()) {
    performOnMainThread([runLoop, appleTimer = std::move(appleTimer), mode] {
      appleTimer->installOn(runLoop, nameOf(mode));
    });
  } else {
    appleTimer->installOn(runLoop, nameOf(mode));
  }
}

AppleRunLoopService::AppleRunLoopService()
    : main_(std::make_shared<AppleRunLoop>([NSRunLoop mainRunLoop], CFRunLoopGetMain())) {}

std::shared_ptr<RunLoop> AppleRunLoopService::currentRunLoop() {
  const CFRunLoopRef current = CFRunLoopGetCurrent();
  if (current == main_->cfRunLoop()) return main_;
  return std::make_shared<AppleRunLoop>([NSRunLoop currentRunLoop], current);
}

std::shared_ptr<RunLoopTimer> AppleRunLoopService::timerWithTimeInterval(
    double timeInterval, const std::shared_ptr<Object> &target, Selector selector, bool repeats) {
  return AppleTimer::make(timeInterval, target, selector, repeats);
}

}  // namespace kx
