#pragma once

#include <memory>

#include "KXPublisher/platform/RunLoop.h"
#include "KXPublisher/platform/simulated/SimulatedScheduler.h"

namespace kx {

/// The main run loop and its timers on virtual time. Every other thread's loop exists and never runs.
class KX_EXPORT SimulatedRunLoopService : public RunLoopService {
 public:
  explicit SimulatedRunLoopService(SimulatedScheduler &scheduler);

  std::shared_ptr<RunLoop> mainRunLoop() override { return main_; }
  std::shared_ptr<RunLoop> currentRunLoop() override;
  std::shared_ptr<RunLoopTimer> timerWithTimeInterval(double timeInterval,
                                                      const std::shared_ptr<Object> &target,
                                                      Selector selector, bool repeats) override;

 private:
  class Loop;
  class SimulatedTimer;

  SimulatedScheduler &scheduler_;
  const std::shared_ptr<RunLoop> main_;
  const std::shared_ptr<RunLoop> worker_;
};

}  // namespace kx
