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
  SimulatedTimer(SimulatedRunLoopService &service, SimulatedScheduler &scheduler, double timeInterval,
                 std::shared_ptr<Object> target, Selector selector, bool repeats)
      : service_(service),
        scheduler_(scheduler),
        timeInterval_(timeInterval > 0 ? timeInterval : shortestTimeInterval),
        created_(scheduler.uptime()),
        target_(std::move(target)),
        selector_(selector),
        repeats_(repeats) {}

  ~SimulatedTimer() override { service_.installed_.erase(this); }

  bool isValid() const override {
    scheduler_.yield();
    return target_ != nullptr;
  }
  void invalidate() override {
    scheduler_.yield();
    const auto self = strong(*this);  // what is cancelled may be the last that holds it
    const auto target = std::exchange(target_, nullptr);
    if (service_.installed_.erase(this) != 0) scheduler_.cancel(ticket_);
  }

  void install(RunLoopMode mode) {
    if (target_ == nullptr || std::exchange(isInstalled_, true)) return;
    mode_ = mode;
    service_.installed_.insert(this);
    scheduleNextFiring();
  }

 private:
  void scheduleNextFiring() {
    // Reckoned from the creation each time, so that no error adds up and a late firing shifts no later one.
    const double passed = scheduler_.uptime() - created_;
    period_ = std::max(period_, std::floor(passed / timeInterval_)) + 1;
    const double due = created_ + period_ * timeInterval_;
    ticket_ = scheduler_.after(
        std::max(0.0, due - scheduler_.uptime()), scheduler_.mainQueue(),
        [timer = strong(*this)] { timer->service_.whenServed(timer->mode_, [timer] { timer->fire(); }); },
        SimulatedScheduler::Later::timer);
  }

  void fire() {
    const std::shared_ptr<Object> target = target_;
    if (target == nullptr) return;
    {  // the system's own timers need no memory to go on
      const SimulatedScheduler::OwnWork own(scheduler_);
      if (repeats_) scheduleNextFiring();
      scheduler_.say("timer fires:", selector_.name());
    }
    if (!repeats_) invalidate();
    selector_.perform(*target, shared_from_this());
  }

  SimulatedRunLoopService &service_;
  SimulatedScheduler &scheduler_;
  const double timeInterval_;
  const double created_;
  std::shared_ptr<Object> target_;
  const Selector selector_;
  const bool repeats_;
  bool isInstalled_ = false;
  RunLoopMode mode_ = RunLoopMode::defaultMode;
  SimulatedScheduler::Ticket ticket_{};
  double period_ = 0;
};

class SimulatedRunLoopService::Loop : public RunLoop {
 public:
  explicit Loop(bool runs) : runs_(runs) {}

  void addTimer(const std::shared_ptr<RunLoopTimer> &timer, RunLoopMode mode) override {
    const auto simulated = std::dynamic_pointer_cast<SimulatedTimer>(timer);
    if (simulated != nullptr && runs_) simulated->install(mode);
  }

 private:
  const bool runs_;
};

SimulatedRunLoopService::SimulatedRunLoopService(SimulatedScheduler &scheduler)
    : scheduler_(scheduler), main_(std::make_shared<Loop>(true)), worker_(std::make_shared<Loop>(false)) {}

void SimulatedRunLoopService::setTracking(bool tracking) {
  tracking_ = tracking;
  if (tracking) return;
  for (WorkItem &task : std::exchange(notServed_, {})) scheduler_.mainQueue().async(std::move(task));
}

void SimulatedRunLoopService::invalidateTimers() {
  notServed_.clear();
  while (!installed_.empty()) strong(**installed_.begin())->invalidate();
}

std::shared_ptr<RunLoop> SimulatedRunLoopService::currentRunLoop() {
  return scheduler_.isMainThread() ? main_ : worker_;
}

std::shared_ptr<RunLoopTimer> SimulatedRunLoopService::timerWithTimeInterval(
    double timeInterval, const std::shared_ptr<Object> &target, Selector selector, bool repeats) {
  return std::make_shared<SimulatedTimer>(*this, scheduler_, timeInterval, target, selector, repeats);
}

}  // namespace kx
