#pragma once

#include <utility>

#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/OperationQueue.h"

namespace kx {

/// The main operation queue (`mainQueue` of NSOperationQueue) of a platform that has none of its own: its
/// operations run on the main dispatch queue.
class KX_EXPORT MainOperationQueue : public OperationQueue {
 public:
  explicit MainOperationQueue(Dispatch &dispatch) : dispatch_(dispatch) {}

  void addOperation(WorkItem operation) override { dispatch_.mainQueue().async(std::move(operation)); }

 private:
  Dispatch &dispatch_;
};

}  // namespace kx
