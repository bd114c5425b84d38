#pragma once

#include <memory>

#include "KXPublisher/platform/DispatchQueue.h"
#include "platform/linux/threads/LinuxRunLoop.h"
#include "platform/linux/threads/LinuxWorkerPool.h"

namespace kx {

/// The dispatch queues: the main queue is served by the main run loop, the global ones by a pool of threads.
///
/// Work of background priority that the main thread adds starts when that thread is back in its loop (and
/// before the loop first runs, all of it when it does): what has no hurry must not overtake what the main
/// thread is in the middle of. A provider, for one, adds its first refresh before it has all that the refresh
/// needs. So the main thread must not wait for such work, except by `sync`.
///
/// `sync` differs from what the interface promises where it would wait for itself: on the main queue, called
/// on the main thread, and on a global queue, called by one of its own tasks, it runs the task in place.
/// Before the main run loop runs there is no main thread: whoever calls `sync` on the main queue then must
/// not be the thread that is going to run it.
///
/// Lives as long as the process.
class LinuxDispatch : public Dispatch {
 public:
  explicit LinuxDispatch(std::shared_ptr<LinuxRunLoop> mainRunLoop);

  DispatchQueue &globalQueue(DispatchQueuePriority priority) override;
  DispatchQueue &mainQueue() override { return mainQueue_; }
  bool isMainThread() override { return mainRunLoop_->runsOnCurrentThread(); }

 private:
  class MainQueue : public DispatchQueue {
   public:
    explicit MainQueue(LinuxRunLoop &loop) : loop_(loop) {}
    void async(WorkItem task) override;
    void sync(WorkItem task) override;

   private:
    LinuxRunLoop &loop_;
  };
  class GlobalQueue : public DispatchQueue {
   public:
    GlobalQueue(LinuxDispatch &dispatch, DispatchQueuePriority priority)
        : dispatch_(dispatch), priority_(priority) {}
    void async(WorkItem task) override;
    void sync(WorkItem task) override;

   private:
    LinuxDispatch &dispatch_;
    const DispatchQueuePriority priority_;
  };

  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  MainQueue mainQueue_;
  LinuxWorkerPool &pool_;
  GlobalQueue high_{*this, DispatchQueuePriority::high};
  GlobalQueue standard_{*this, DispatchQueuePriority::standard};
  GlobalQueue low_{*this, DispatchQueuePriority::low};
  GlobalQueue background_{*this, DispatchQueuePriority::background};
};

}  // namespace kx
