#include "platform/linux/threads/LinuxDispatch.h"

#include <condition_variable>
#include <mutex>
#include <utility>

#include "platform/linux/threads/ForkedChild.h"

namespace kx {

namespace {

/// Hands a task to `submit`, which has another thread run it, and waits until it has run, however it ended.
template <class Submit>
void submitAndWait(WorkItem task, Submit &&submit) {
  struct Waiting {
    std::mutex mutex;
    std::condition_variable changed;
    bool ended = false;
  } waiting;
  submit([&waiting, task = std::move(task)]() mutable {
    struct AtTheEnd {
      Waiting &waiting;
      ~AtTheEnd() {
        // Under the lock: as soon as it is free, what is notified here may be gone.
        const std::lock_guard<std::mutex> lock(waiting.mutex);
        waiting.ended = true;
        waiting.changed.notify_one();
      }
    } const atTheEnd{waiting};
    std::exchange(task, nullptr)();
  });
  std::unique_lock<std::mutex> lock(waiting.mutex);
  waiting.changed.wait(lock, [&waiting] { return waiting.ended; });
}

}  // namespace

LinuxDispatch::LinuxDispatch(std::shared_ptr<LinuxRunLoop> mainRunLoop)
    : mainRunLoop_(std::move(mainRunLoop)), mainQueue_(*mainRunLoop_), pool_(LinuxWorkerPool::shared()) {}

DispatchQueue &LinuxDispatch::globalQueue(DispatchQueuePriority priority) {
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

void LinuxDispatch::MainQueue::async(WorkItem task) {
  loop_.perform(std::move(task));
}

void LinuxDispatch::MainQueue::sync(WorkItem task) {
  if (loop_.runsOnCurrentThread() || ForkedChild::isThisProcess()) {
    task();
  } else {
    submitAndWait(std::move(task), [this](WorkItem waitedFor) { loop_.perform(std::move(waitedFor)); });
  }
}

void LinuxDispatch::GlobalQueue::async(WorkItem task) {
  LinuxWorkerPool &pool = dispatch_.pool_;
  if (priority_ == DispatchQueuePriority::background && !dispatch_.mainRunLoop_->runsOnAnotherThread()) {
    dispatch_.mainRunLoop_->perform([&pool, task = std::move(task)]() mutable {
      pool.submit(DispatchQueuePriority::background, std::exchange(task, nullptr));
    });
  } else {
    pool.submit(priority_, std::move(task));
  }
}

void LinuxDispatch::GlobalQueue::sync(WorkItem task) {
  if (LinuxWorkerPool::isWorker(priority_) || ForkedChild::isThisProcess()) {
    task();
  } else {
    submitAndWait(std::move(task),
                  [this](WorkItem waitedFor) { dispatch_.pool_.submit(priority_, std::move(waitedFor)); });
  }
}

}  // namespace kx
