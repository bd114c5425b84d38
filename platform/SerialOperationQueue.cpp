#include "KXPublisher/platform/SerialOperationQueue.h"

#include <algorithm>
#include <utility>

#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/foundation/YieldPoint.h"

namespace kx {

void SerialOperationQueue::addOperation(WorkItem operation) {
  std::list<Waiting> own;  // outlives the lock, as below: what operations hold is released without it
  own.push_back({0, std::move(operation)});
  std::uint64_t number = 0;
  yieldPoint();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    number = own.front().number = ++added_;
    waiting_.splice(waiting_.end(), own);
    if (std::exchange(submitted_, true)) return;
  }
  try {
    submit();
  } catch (...) {
    const std::lock_guard<std::mutex> lock(mutex_);
    submitted_ = false;
    const auto found = std::find_if(waiting_.begin(), waiting_.end(), [number](const Waiting &candidate) {
      return candidate.number == number;
    });
    if (found != waiting_.end()) own.splice(own.end(), waiting_, found);
    throw;
  }
}

void SerialOperationQueue::cancelAllOperations() {
  std::list<Waiting> cancelled;
  yieldPoint();
  const std::lock_guard<std::mutex> lock(mutex_);
  cancelled.swap(waiting_);
}

void SerialOperationQueue::submit() {
  // One task an operation, so that a busy queue does not keep a worker from others.
  Platform::current().dispatch().globalQueue(DispatchQueuePriority::standard).async([queue = strong(*this)] {
    queue->runOperations();
  });
}

void SerialOperationQueue::runOperations() {
  do {
    std::list<Waiting> running;
    yieldPoint();
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (waiting_.empty()) {  // cancelled since
        submitted_ = false;
        return;
      }
      running.splice(running.end(), waiting_, waiting_.begin());
    }
    try {
      running.front().operation();
    } catch (...) {
      if (!submitNext()) runOperations();
      throw;
    }
  } while (!submitNext());
}

/// Has the next operation, if one waits, get its turn on a worker. False when it cannot be submitted: then
/// the one that runs this goes on.
bool SerialOperationQueue::submitNext() noexcept {
  yieldPoint();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    submitted_ = !waiting_.empty();
    if (!submitted_) return true;
  }
  try {
    submit();
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace kx
