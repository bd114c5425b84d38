#include "KXPublisher/platform/SerialOperationQueue.h"

#include <utility>

#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/foundation/YieldPoint.h"

namespace kx {

void SerialOperationQueue::addOperation(WorkItem operation) {
  yieldPoint();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    waiting_.push_back(std::move(operation));
    if (std::exchange(submitted_, true)) return;
  }
  submit();
}

void SerialOperationQueue::cancelAllOperations() {
  std::deque<WorkItem> cancelled;  // outlives the lock: what the operations hold is released without it
  yieldPoint();
  const std::lock_guard<std::mutex> lock(mutex_);
  cancelled.swap(waiting_);
}

void SerialOperationQueue::submit() {
  // One task an operation, so that a busy queue does not keep a worker from others.
  Platform::current().dispatch().globalQueue(DispatchQueuePriority::standard).async([queue = strong(*this)] {
    queue->runNextOperation();
  });
}

void SerialOperationQueue::runNextOperation() {
  WorkItem operation;
  yieldPoint();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.empty()) {  // cancelled since
      submitted_ = false;
      return;
    }
    operation = std::move(waiting_.front());
    waiting_.pop_front();
  }

  // However the operation ends, the next one gets its turn.
  struct Continuation {
    SerialOperationQueue &queue;
    ~Continuation() {
      yieldPoint();
      {
        const std::lock_guard<std::mutex> lock(queue.mutex_);
        queue.submitted_ = !queue.waiting_.empty();
        if (!queue.submitted_) return;
      }
      queue.submit();
    }
  } const continuation{*this};
  operation();
}

}  // namespace kx
