#pragma once

#include "KXPublisher/platform/OperationQueue.h"

namespace kx {

/// `mainQueue` of NSOperationQueue.
class AppleMainOperationQueue : public OperationQueue {
 public:
  void addOperation(WorkItem operation) override;
};

}  // namespace kx
