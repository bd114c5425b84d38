#include "KXPublisher/platform/simulated/SimulatedRunLoop.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kx {

namespace {

constexpr double shortestTimeInterval = 0.0001;  // seconds

}  // namespace

class SimulatedRunLoopService::SimulatedTimer : public RunLoopTimer {
 public:
  SimulatedTimer(SimulatedScheduler &scheduler, double timeInterval, std::shared_ptr<Object> target,
                 Selector selector, bool repeats)
      : scheduler_(scheduler),
        timeInterval_(timeInterval > 0 ? timeInterval : shortestTimeInterval),
        created_(scheduler.uptime()),
        target_(std::move(target)),
        selector_(selector),
        repeats_(repeats) {}

  bool isValid() const override { return target_ != nullptr; }
  void invalidate() override { target_ = nullptr; }

  void install() {
    if (!std::exchange(installed_, true)) scheduleNextFiring();
  }

 private:
  void scheduleNextFiring() {
    // Reckoned from the creation each time, so that no error adds up and a late firing shifts no later one.
    const double passed = scheduler_.uptime() - created_;
    period_ = std::max(period_, std::floor(passed / timeInterval_)) + 1;
    const double due = created_ + period_ * timeInterval_;
    scheduler_.after(std::max(0.0, due - scheduler_.uptime()), scheduler_.mainQueue(),
                     [timer = strong(*this)] { timer->fire(); });
  }

  void fire() {
    const std::shared_ptr<Object> target = target_;
    if (target == nullptr) return;
    if (repeats_) {
      scheduleNextFiring();
    } else {
      invalidate();
    }
    selector_.perform(*target, shared_from_this());
  }

  SimulatedScheduler &scheduler_;
  const double timeInterval_;
  const double created_;
  std::shared_ptr<Object> target_;
  const Selector selector_;
  const bool repeats_;
  bool installed_ = false;
  double period_ = 0;
};

class SimulatedRunLoopService::Loop : public RunLoop {
 public:
  explicit Loop(bool runs) : runs_(runs) {}

  void addTimer(const std::shared_ptr<RunLoopTimer> &timer, RunLoopMode /*mode*/) override {
    const auto simulated = std::dynamic_pointer_cast<SimulatedTimer>(timer);
    if (simulated != nullptr && runs_) simulated->install();
  }

 private:
  const bool runs_;
};

SimulatedRunLoopService::SimulatedRunLoopService(SimulatedScheduler &scheduler)
    : scheduler_(scheduler), main_(std::make_shared<Loop>(true)), worker_(std::make_shared<Loop>(false)) {}

std::shared_ptr<RunLoop> SimulatedRunLoopService::currentRunLoop() {
  return scheduler_.isMainThread() ? main_ : worker_;
}

std::shared_ptr<RunLoopTimer> SimulatedRunLoopService::timerWithTimeInterval(
    double timeInterval, const std::shared_ptr<Object> &target, Selector selector, bool repeats) {
  return std::make_shared<SimulatedTimer>(scheduler_, timeInterval, target, selector, repeats);
}

}  // namespace kx
