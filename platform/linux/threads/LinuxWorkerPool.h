#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>

#include "KXPublisher/platform/DispatchQueue.h"

namespace kx {

/// The threads of the global queues. They exist while there is work: a worker ends when nothing waits for it,
/// so that an idle library has no thread.
///
/// Low and background priority are nice values above the submitter's. The idle scheduling class would be
/// lower still, but a thread that is preempted inside one of the short locks that it shares with the main
/// thread, here or in the allocator, must come back soon, and an idle one comes back when every other process
/// rests.
///
/// A thread inherits its maker's nice value, and cannot lower it again without privilege. So no worker makes
/// another: that is done by one more thread, the launcher, which lives while any worker does. It also takes
/// the making of threads off the submitter, which may be the host's main thread: a burst costs it one.
///
/// Host signal handlers never run on these threads: they block every signal but those of their own faults.
///
/// Lives as long as the process.
class LinuxWorkerPool {
 public:
  /// The one that the library's own work is done by.
  static LinuxWorkerPool &shared();

  LinuxWorkerPool();
  ~LinuxWorkerPool() = delete;

  /// How many tasks of one priority run at the same time.
  static constexpr unsigned maximumThreads = 8;

  /// Has `task` run on a worker of that priority, in the order of submission. What it throws is reported on
  /// the console. When no thread can be made the task waits for the next submission.
  void submit(DispatchQueuePriority priority, WorkItem task);

  /// `startDetachedThread`, but when a worker of low priority calls it the launcher makes the thread, which
  /// so has the nice value of the process. That worker waits until it has.
  static int startThread(std::size_t stackSize, void *(*main)(void *), void *argument);

  /// Whether the calling thread is a worker of that priority.
  static bool isWorker(DispatchQueuePriority priority);

 private:
  /// What there is of each priority.
  struct Lane {
    LinuxWorkerPool *pool;
    const char *threadName;  ///< 15 characters at most
    int niceIncrement;
    std::deque<WorkItem> waiting;
    unsigned threads = 0;
    bool starting = false;  ///< one of them has not come to its first task
    bool refused = false;   ///< the last one could not be made; not tried again before the next submission
  };
  static constexpr std::size_t lanesCount = 4;
  /// A thread that a worker wants made. It is that worker's, which waits.
  struct Order {
    std::size_t stackSize;
    void *(*main)(void *);
    void *argument;
    bool served;
    int error;
    Order *next;
  };

  static std::size_t indexOf(DispatchQueuePriority priority) { return static_cast<std::size_t>(priority); }
  static bool needsThread(const Lane &lane);
  static void *launcherMain(void *pool);
  static void *workerMain(void *lane);
  void launchWorkers();
  void serveOrders(std::unique_lock<std::mutex> &lock);
  void work(Lane &lane);

  std::mutex mutex_;  ///< guards everything below; held for a few instructions, no thread is woken under it
  /// What the launcher waits for: a lane needs a thread, a worker has an order, or no worker is left.
  std::condition_variable changed_;
  std::condition_variable ordersServed_;
  Order *orders_ = nullptr;  ///< the latest first
  std::array<Lane, lanesCount> lanes_;
  unsigned workers_ = 0;
  bool launcherRuns_ = false;
};

}  // namespace kx
