#include "KXPublisher/platform/simulated/SimulatedScheduler.h"

#include <vector>

namespace kx {

namespace {

/// More tasks than this without time passing are one that submits itself again and again.
constexpr std::uint64_t tooManyTasks = 1'000'000;

/// Sets a variable until the end of the scope, however it is left.
class Setting {
 public:
  Setting(bool &variable, bool value) : variable_(variable), before_(std::exchange(variable, value)) {}
  ~Setting() { variable_ = before_; }
  Setting(const Setting &) = delete;
  Setting &operator=(const Setting &) = delete;

 private:
  bool &variable_;
  const bool before_;
};

}  // namespace

SimulatedScheduler::SimulatedScheduler(std::uint64_t seed) : random_(seed), seeded_(seed != 0) {}

DispatchQueue &SimulatedScheduler::globalQueue(DispatchQueuePriority priority) {
  switch (priority) {
    case DispatchQueuePriority::high:
      return high_;
    case DispatchQueuePriority::standard:
      return standard_;
    case DispatchQueuePriority::low:
      return low_;
    case DispatchQueuePriority::background:
      break;
  }
  return background_;
}

void SimulatedScheduler::Queue::async(WorkItem task) {
  scheduler_.submit(*this, std::move(task));
}

void SimulatedScheduler::Queue::sync(WorkItem task) {
  scheduler_.submitAndWait(*this, task);
}

void SimulatedScheduler::submit(Queue &queue, WorkItem work) {
  ready_.push_back({&queue, std::move(work)});
  if (&queue == &background_ && backgroundTasksRunAtOnce_) {
    run(std::prev(ready_.end()));
  } else if (seeded_ && onMainThread_) {
    preempt();
  }
}

/// Lets some of the background queue's tasks run in the middle of what the main thread is doing.
void SimulatedScheduler::preempt() {
  for (std::size_t i = 0; i < ready_.size();) {
    if (ready_[i].queue == &background_ && random_() % 4 == 0) {
      run(ready_.begin() + static_cast<std::ptrdiff_t>(i));
      i = 0;
    } else {
      ++i;
    }
  }
}

void SimulatedScheduler::submitAndWait(Queue &queue, const WorkItem &work) {
  if (&queue == &main_ && onMainThread_) {
    throw SimulatedDeadlock("the main thread waits for the main queue, and so for itself");
  }
  if (&queue == &main_ && !mainThreadWaits_) {
    throw SimulatedDeadlock(
        "a task that runs in the middle of what the main thread is doing waits for the main thread: on a "
        "real "
        "device it would go on later, which the simulation cannot show");
  }
  bool done = false;
  ready_.push_back({&queue, [&work, &done] {
                      struct Done {
                        bool &flag;
                        ~Done() { flag = true; }
                      } const atTheEnd{done};
                      work();
                    }});
  while (!done) {
    if (!runOne()) throw SimulatedDeadlock("a task waits for another one that cannot run");
  }
}

bool SimulatedScheduler::runOne() {
  // The main queue is serial: of its tasks only the first may run, and only while the main thread is free.
  std::vector<Tasks::iterator> runnable;
  bool mainThreadFree = mainThreadWaits_;
  for (auto task = ready_.begin(); task != ready_.end(); ++task) {
    if (task->queue == &main_ && !std::exchange(mainThreadFree, false)) continue;
    runnable.push_back(task);
    if (!seeded_) break;
  }
  if (runnable.empty()) return false;
  run(runnable[seeded_ ? static_cast<std::size_t>(random_() % runnable.size()) : 0]);
  return true;
}

void SimulatedScheduler::run(const Tasks::iterator &task) {
  if (++tasksAtThisTime_ > tooManyTasks)
    throw SimulatedDeadlock("tasks run without end while no time passes");
  const Task running = std::move(*task);
  ready_.erase(task);
  const bool main = running.queue == &main_;
  const Setting thread(onMainThread_, main);
  const Setting waits(mainThreadWaits_, !main && mainThreadWaits_);
  running.work();
}

void SimulatedScheduler::runReadyTasks() {
  if (!onMainThread_) throw std::logic_error("only the main thread drives the simulated device");
  const Setting waits(mainThreadWaits_, true);
  while (runOne()) {
  }
}

void SimulatedScheduler::advance(double seconds) {
  const double end = uptime_ + seconds;
  runReadyTasks();
  while (!later_.empty() && later_.begin()->first <= end) {
    uptime_ = later_.begin()->first;
    tasksAtThisTime_ = 0;
    while (!later_.empty() && later_.begin()->first <= uptime_) {
      ready_.push_back(std::move(later_.begin()->second));
      later_.erase(later_.begin());
    }
    runReadyTasks();
  }
  uptime_ = end;
  tasksAtThisTime_ = 0;
}

void SimulatedScheduler::after(double delay, DispatchQueue &queue, WorkItem task) {
  later_.emplace(uptime_ + delay, Task{static_cast<Queue *>(&queue), std::move(task)});
}

}  // namespace kx
