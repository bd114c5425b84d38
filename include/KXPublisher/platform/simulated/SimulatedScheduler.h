#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <random>
#include <stdexcept>
#include <utility>

#include "KXPublisher/platform/DispatchQueue.h"

namespace kx {

/// Thrown where a real device would hang for ever: a task waits for something that can no longer happen.
class KX_EXPORT SimulatedDeadlock : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

/// Virtual time and virtual threads: everything that the simulated device does, it does here, one task after
/// the other, on the thread that drives it. That thread, the test's own, counts as the device's main thread,
/// and so do tasks of the main queue and timers; tasks of the global queues count as worker threads.
///
/// Tasks run only inside `advance` and `runReadyTasks`, and while a task waits for the main thread. What a
/// task throws comes out there. Without a seed they run first in, first out. A seed other than 0 picks
/// another order, always the same for that seed: ready tasks of different queues, and the tasks of one global
/// queue, in any order, and tasks of the background queue sometimes before the submission that follows them,
/// as if a worker thread had been quicker than the main thread.
class KX_EXPORT SimulatedScheduler : public Dispatch {
 public:
  explicit SimulatedScheduler(std::uint64_t seed);

  /// Lets that many seconds pass: everything that falls due runs at its time.
  void advance(double seconds);
  /// Runs what is ready now and what becomes ready by that, without letting time pass.
  void runReadyTasks();
  /// Seconds since the device was switched on, without the time that it slept.
  double uptime() const { return uptime_; }

  /// Has a task become ready on that queue in `delay` seconds.
  void after(double delay, DispatchQueue &queue, WorkItem task);

  /// From now on every task submitted to the global queue of background priority runs before the submission
  /// returns: the extreme case of a quick worker thread.
  void setBackgroundTasksRunAtOnce(bool runAtOnce) { backgroundTasksRunAtOnce_ = runAtOnce; }

  DispatchQueue &globalQueue(DispatchQueuePriority priority) override;
  DispatchQueue &mainQueue() override { return main_; }
  bool isMainThread() override { return onMainThread_; }

 private:
  class Queue : public DispatchQueue {
   public:
    explicit Queue(SimulatedScheduler &scheduler) : scheduler_(scheduler) {}
    void async(WorkItem task) override;
    void sync(WorkItem task) override;

   private:
    SimulatedScheduler &scheduler_;
  };
  struct Task {
    Queue *queue;
    WorkItem work;
  };
  using Tasks = std::deque<Task>;

  void submit(Queue &queue, WorkItem work);
  void submitAndWait(Queue &queue, const WorkItem &work);
  /// Runs one ready task of those that may run; false when there is none.
  bool runOne();
  void run(const Tasks::iterator &task);
  void preempt();

  std::mt19937_64 random_;
  const bool seeded_;
  bool backgroundTasksRunAtOnce_ = false;
  bool onMainThread_ = true;
  bool mainThreadWaits_ = false;  ///< the main thread is in its run loop, and not in the middle of a task
  double uptime_ = 0;
  std::uint64_t tasksAtThisTime_ = 0;
  Tasks ready_;
  std::multimap<double, Task> later_;  ///< by the uptime at which they become ready
  Queue main_{*this};
  Queue high_{*this};
  Queue standard_{*this};
  Queue low_{*this};
  Queue background_{*this};
};

}  // namespace kx
