#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/simulated/SimulatedTrace.h"

namespace kx {

/// Thrown where a real device would hang for ever: a task waits for something that can no longer happen.
class KX_EXPORT SimulatedDeadlock : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

/// Virtual time and virtual threads: everything that the simulated device does, it does here, one piece after
/// the other, driven by one thread. That thread, the test's own, counts as the device's main thread, and so
/// do tasks of the main queue and timers. Tasks of the global queues run on worker threads, which have a
/// stack of their own each and wait without keeping anybody else from running.
///
/// Tasks run inside `advance`, `runReadyTasks` and the like, and while the main thread waits for one. What a
/// task throws comes out there. Without a seed each runs in one piece, first in, first out. A seed other than
/// 0 picks another schedule, always the same for that seed:
/// - ready tasks of different queues, and those of one global queue, begin in any order;
/// - at each `yieldPoint` and each call across the seam another thread may go first, the main thread's own
///   calls of the library included, so workers also run in the middle of what a test calls;
/// - what falls due at the same instant does so in any order.
///
/// Threads of background priority get what the others leave: a task that was submitted to the background
/// queue begins, as a rule, not before its submitter has come a good deal further. With
/// `setBackgroundTasksRunAtOnce` it is quicker, as often as asked; by itself one in 256 under a seed, none
/// without.
class KX_EXPORT SimulatedScheduler : public Dispatch {
 public:
  explicit SimulatedScheduler(std::uint64_t seed);
  SimulatedScheduler(const SimulatedScheduler &) = delete;
  SimulatedScheduler &operator=(const SimulatedScheduler &) = delete;
  /// As `finish`.
  ~SimulatedScheduler() override;

  /// Lets that many seconds pass: everything that falls due runs at its time. Throws `std::invalid_argument`
  /// for a negative time, and for one that is no number.
  void advance(double seconds);
  /// Runs what is ready now and what becomes ready by that, without letting time pass.
  void runReadyTasks();
  /// Runs one task that is ready, or a piece of it, up to where it ends, waits or is overtaken; false when
  /// none is ready.
  bool step();
  /// Lets time pass until nothing is under way any more: no task, request or geocoding. Timers do not count.
  void runUntilIdle();

  /// Seconds until something happens by itself, 0 while a task is ready; absent when nothing ever will.
  std::optional<double> nextDue() const;
  /// Seconds since the device was switched on, without the time that it slept.
  double uptime() const { return uptime_; }
  /// Tasks that are ready and have not begun; those that have begun and not ended, but wait or were
  /// overtaken; and those that become ready later, timers among them.
  std::size_t readyTasks() const { return ready_.size(); }
  std::size_t begunTasks() const;
  std::size_t laterTasks() const { return later_.size(); }
  /// The number of the task that the running thread is in; 0 where it is in none.
  std::uint64_t runningTask() { return runningThread().task; }
  /// While there is one, the device is at work for itself and not in the library's code: what a test has fail
  /// in the library, memory for one, does not fail in it.
  class OwnWork {
   public:
    explicit OwnWork(SimulatedScheduler &scheduler) : scheduler_(scheduler) { ++scheduler_.ownWork_; }
    ~OwnWork() { --scheduler_.ownWork_; }
    OwnWork(const OwnWork &) = delete;
    OwnWork &operator=(const OwnWork &) = delete;

   private:
    SimulatedScheduler &scheduler_;
  };
  bool isAtOwnWork() const { return ownWork_ != 0; }
  /// How many workers there were at once, at most.
  std::size_t workers() const { return workers_.size(); }

  /// What falls due later, as `after` names it.
  using Ticket = std::pair<double, std::uint64_t>;
  enum class Later { event, timer };
  /// Has a task become ready on that queue in `delay` seconds, at once if that is 0. Throws
  /// `std::invalid_argument` for a negative delay, and for one that is no number.
  Ticket after(double delay, DispatchQueue &queue, WorkItem task, Later kind = Later::event);
  /// Drops it, unless it is ready already.
  void cancel(const Ticket &ticket);

  /// The share (0 to 1; true is all) of the tasks submitted to the global queue of background priority that
  /// run before the submission returns, up to where they end or wait: the extreme case of a quick worker.
  void setBackgroundTasksRunAtOnce(double share) { atOnceShare_ = share; }
  /// The share of yield points at which a seeded schedule switches to another thread. By itself each seed
  /// picks one between 1/2 and 1/64.
  void setSwitchShare(double share) { switchShare_ = share; }

  /// While the process is suspended, nothing of it runs; what falls due runs when it is resumed.
  void setSuspended(bool suspended) { suspended_ = suspended; }
  bool isSuspended() const { return suspended_; }

  /// What the threads do, when it is recorded.
  SimulatedTrace trace{};
  /// Records that the running thread does this.
  void say(const char *what, const std::string &of = std::string());

  /// A yield point of the running thread.
  void yield();
  /// Has the running thread wait until `condition` holds.
  void waitUntil(const std::function<bool()> &condition);
  /// The scheduler of the device that was made first of those that exist; a null pointer when there is none.
  static SimulatedScheduler *current();

  /// Runs what is ready to its end, drops what falls due later, and takes nothing any more: the device's last
  /// moment.
  void finish();

  DispatchQueue &globalQueue(DispatchQueuePriority priority) override;
  DispatchQueue &mainQueue() override { return main_; }
  bool isMainThread() override { return running_ == nullptr; }

 private:
  class Queue : public DispatchQueue {
   public:
    Queue(SimulatedScheduler &scheduler, const char *name) : scheduler_(scheduler), name_(name) {}
    Queue(const Queue &) = delete;
    Queue &operator=(const Queue &) = delete;
    ~Queue() override = default;
    void async(WorkItem task) override;
    void sync(WorkItem task) override;
    const char *name() const { return name_; }

   private:
    SimulatedScheduler &scheduler_;
    const char *const name_;
  };
  struct Thread {
    std::uint64_t yields = 0;  ///< yield points passed; far more when it ends a task
    std::uint64_t task = 0;
    unsigned number = 0;
  };
  struct Worker;
  struct Task {
    Queue *queue;
    WorkItem work;
    std::uint64_t number;
    const Thread *submitter = nullptr;
    std::uint64_t beginsAfter = 0;  ///< so many yield points of the submitter
  };
  struct LaterTask {
    Task task;
    Later kind;
  };
  using Tasks = std::deque<Task>;

  Task makeTask(Queue &queue, WorkItem work);
  void submit(Queue &queue, WorkItem work);
  void submitAndWait(Queue &queue, const WorkItem &work);
  /// Runs one piece of what may run, of the main queue as well if that is its turn; false when there is none.
  bool runOne(bool mainQueueToo);
  void run(const Tasks::iterator &task);
  void runOnMainThread(const Task &task);
  Worker &begin(Task task);
  void resume(Worker &worker);
  /// Runs a worker up to where it ends or waits, whatever the schedule says.
  void runThrough(Worker &worker);
  void throwPending();
  void requireMainThread() const;
  void makeDueTasksReady();
  bool chance(double share);
  Thread &runningThread();
  void record(SimulatedTrace::Kind kind, const Thread &thread, std::uint64_t task, const char *what);

  std::mt19937_64 random_;
  const bool seeded_;
  double switchShare_ = 0;
  double atOnceShare_;
  bool suspended_ = false;
  bool finished_ = false;
  unsigned ownWork_ = 0;
  bool inOnePiece_ = false;  ///< no yield point switches now
  double uptime_ = 0;
  std::uint64_t tasksAtThisTime_ = 0;
  std::uint64_t tasks_ = 0;
  Tasks ready_{};
  std::map<Ticket, LaterTask> later_{};
  std::vector<std::unique_ptr<Worker>> workers_{};
  Worker *running_ = nullptr;  ///< null: the main thread runs
  Worker *urgent_ = nullptr;   ///< it has to run before the thread that has just been suspended goes on
  std::exception_ptr pending_{};
  Thread mainThread_{};
  Queue main_{*this, "main"};
  Queue high_{*this, "high"};
  Queue standard_{*this, "default"};
  Queue low_{*this, "low"};
  Queue background_{*this, "background"};
};

}  // namespace kx
