#pragma once

#import <Foundation/Foundation.h>

#include <memory>
#include <string>

#include "KXPublisher/platform/RunLoopTimer.h"
#include "KXPublisher/platform/foundation/Selector.h"

namespace kx {

/// An operation of a host's object, as one of the library's: the library's timers call it with the firing
/// NSTimer as the argument. Keeps the host's object alive.
class HostTarget : public Object {
 public:
  HostTarget(id _Nonnull target, SEL _Nullable selector) : target_(target), selector_(selector) {}

  /// Null pointers when there is no target.
  static std::shared_ptr<HostTarget> make(id _Nullable target, SEL _Nullable selector);
  /// A null selector for a null pointer.
  static Selector selectorOf(SEL _Nullable selector);

  id _Nonnull target() const { return target_; }
  void fire(const std::shared_ptr<RunLoopTimer> &timer);

  /// The host's object's.
  std::string description() const override;

 private:
  const id _Nonnull target_;
  const SEL _Nullable selector_;
};

/// The host's object of such a target; of another object of the library's what hosts know it by.
id _Nullable targetBehind(const std::shared_ptr<Object> &target);

/// An NSTimer as one of the library's timers, and back; nil and a null pointer stand for each other.
std::shared_ptr<RunLoopTimer> timerOf(NSTimer *_Nullable systemTimer);
NSTimer *_Nullable systemTimerOf(const std::shared_ptr<RunLoopTimer> &timer);

}  // namespace kx
