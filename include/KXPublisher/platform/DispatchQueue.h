#pragma once

#include <functional>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// A piece of work, run once.
using WorkItem = std::function<void()>;

/// The priorities of the global queues, highest first.
enum class DispatchQueuePriority { high, standard, low, background };

/// A queue of tasks (dispatch queue). May be used from any thread. A task's captures are released after it
/// ran, on the thread it ran on.
class KX_EXPORT DispatchQueue {
 public:
  virtual ~DispatchQueue() = default;

  /// `dispatch_async`: adds a task and returns at once. Tasks start in the order in which they were added.
  virtual void async(WorkItem task) = 0;

  /// `dispatch_sync`: adds a task and waits until it has run. On the main queue this must never be called on
  /// the main thread, which would wait for itself.
  virtual void sync(WorkItem task) = 0;
};

/// The device's queues. May be used from any thread; the queues live as long as the process.
class KX_EXPORT Dispatch {
 public:
  virtual ~Dispatch() = default;

  /// `dispatch_get_global_queue`: the concurrent queue of that priority. Its tasks run on worker threads,
  /// never on the main thread, and several of them at the same time.
  virtual DispatchQueue &globalQueue(DispatchQueuePriority priority) = 0;

  /// `dispatch_get_main_queue`: the serial queue whose tasks run on the main thread.
  virtual DispatchQueue &mainQueue() = 0;

  /// `isMainThread` (NSThread): whether the calling thread is the one that runs the main run loop.
  virtual bool isMainThread() = 0;
};

}  // namespace kx
