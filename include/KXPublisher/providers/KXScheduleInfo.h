#pragma once

#include <atomic>
#include <memory>

#include "KXPublisher/platform/RunLoopTimer.h"
#include "KXPublisher/platform/foundation/AtomicProperty.h"
#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/Selector.h"

namespace kx {

/// What the scheduler keeps of one repeating timer. Letting go of a record stops its timer. May be used from
/// any thread.
class KX_EXPORT KXScheduleInfo : public Object {
 public:
  /// `initWithTimer:forTarget:selector:withTimeInterval:`
  KXScheduleInfo(std::shared_ptr<RunLoopTimer> timer, std::shared_ptr<Object> forTarget, Selector selector,
                 double withTimeInterval);
  /// `dealloc`: invalidates the timer.
  ~KXScheduleInfo() override;

  /// `timer`: the timer that is installed for the pair; invalid while the pair is paused.
  std::shared_ptr<RunLoopTimer> timer() const { return timer_.get(); }
  void setTimer(std::shared_ptr<RunLoopTimer> timer) { timer_.set(std::move(timer)); }

  /// `target`: the object that the timer calls. The record keeps it alive.
  std::shared_ptr<Object> target() const { return target_.get(); }
  void setTarget(std::shared_ptr<Object> target) { target_.set(std::move(target)); }

  /// `selector`: the operation that it calls there, with the firing timer as the argument.
  Selector selector() const { return selector_.get(); }
  void setSelector(Selector selector) { selector_.set(selector); }

  /// `timeInterval`: the period in seconds.
  double timeInterval() const { return timeInterval_; }
  void setTimeInterval(double timeInterval) { timeInterval_ = timeInterval; }

 private:
  AtomicProperty<std::shared_ptr<RunLoopTimer>> timer_;
  AtomicProperty<std::shared_ptr<Object>> target_;
  AtomicProperty<Selector> selector_;
  std::atomic<double> timeInterval_{0.0};
};

}  // namespace kx
