#pragma once

#include <memory>
#include <set>
#include <vector>

#include "KXPublisher/platform/RunLoop.h"
#include "KXPublisher/platform/simulated/SimulatedScheduler.h"

namespace kx {

/// The main run loop and its timers on virtual time. Every other thread's loop exists and never runs.
class KX_EXPORT SimulatedRunLoopService : public RunLoopService {
 public:
  explicit SimulatedRunLoopService(SimulatedScheduler &scheduler);

  /// How many timers are installed and valid.
  std::size_t timers() const { return installed_.size(); }
  /// The user drags or scrolls: until that ends, the main loop serves only what was added for common modes.
  /// What was due for the default mode comes then.
  void setTracking(bool tracking);
  bool isTracking() const { return tracking_; }
  /// Runs `task`, on the main thread, as soon as the main loop serves that mode.
  template <class Task>
  void whenServed(RunLoopMode mode, const Task &task) {
    if (tracking_ && mode == RunLoopMode::defaultMode) {
      const SimulatedScheduler::OwnWork own(scheduler_);
      notServed_.push_back(task);
    } else {
      task();
    }
  }
  /// No timer fires any more, and all let go of their targets.
  void invalidateTimers();

  std::shared_ptr<RunLoop> mainRunLoop() override { return main_; }
  std::shared_ptr<RunLoop> currentRunLoop() override;
  std::shared_ptr<RunLoopTimer> timerWithTimeInterval(double timeInterval,
                                                      const std::shared_ptr<Object> &target,
                                                      Selector selector, bool repeats) override;

 private:
  class Loop;
  class SimulatedTimer;

  SimulatedScheduler &scheduler_;
  std::set<SimulatedTimer *> installed_{};
  bool tracking_ = false;
  std::vector<WorkItem> notServed_{};
  const std::shared_ptr<RunLoop> main_;
  const std::shared_ptr<RunLoop> worker_;
};

}  // namespace kx
