#pragma once

#include <cstdint>
#include <list>
#include <mutex>

#include "KXPublisher/platform/OperationQueue.h"

namespace kx {

/// An operation queue that runs one operation at a time (`maxConcurrentOperationCount` 1), on workers of the
/// default-priority global queue and so never on the main thread. Operations run in the order of adding. What
/// an operation throws goes on to the worker that runs it; the queue carries on with the next operation, even
/// where no further task can be submitted to a worker.
///
/// Always held by a `std::shared_ptr`; operations that wait or run keep it alive.
class KX_EXPORT SerialOperationQueue : public OperationQueue {
 public:
  /// `addOperation:`. Where it throws, for want of memory, the operation has not been added, and the queue is
  /// as it was.
  void addOperation(WorkItem operation) override;

  /// `cancelAllOperations`: operations that have not started yet never run; one that runs finishes.
  void cancelAllOperations();

 private:
  struct Waiting {
    std::uint64_t number;
    WorkItem operation;
  };

  KX_HIDDEN void submit();
  KX_HIDDEN void runOperations();
  KX_HIDDEN bool submitNext() noexcept;

  std::mutex mutex_;
  std::list<Waiting> waiting_;
  std::uint64_t added_ = 0;
  bool submitted_ = false;  ///< a worker runs an operation, or is asked to
};

}  // namespace kx
