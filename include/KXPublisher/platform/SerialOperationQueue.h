#pragma once

#include <deque>
#include <mutex>

#include "KXPublisher/platform/OperationQueue.h"

namespace kx {

/// An operation queue that runs one operation at a time (`maxConcurrentOperationCount` 1), on workers of the
/// default-priority global queue and so never on the main thread. Operations run in the order of adding. What
/// an operation throws goes on to the worker that runs it; the queue carries on with the next operation.
///
/// Always held by a `std::shared_ptr`; operations that wait or run keep it alive.
class KX_EXPORT SerialOperationQueue : public OperationQueue {
 public:
  void addOperation(WorkItem operation) override;

  /// `cancelAllOperations`: operations that have not started yet never run; one that runs finishes.
  void cancelAllOperations();

 private:
  void submit();
  void runNextOperation();

  std::mutex mutex_;
  std::deque<WorkItem> waiting_;
  bool submitted_ = false;  ///< a worker runs an operation, or is asked to
};

}  // namespace kx
