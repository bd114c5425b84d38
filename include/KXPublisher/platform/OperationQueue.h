#pragma once

#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// A queue of operations (NSOperationQueue). May be used from any thread.
class KX_EXPORT OperationQueue : public Object {
 public:
  /// `addOperation:` with a block operation: adds it and returns; operations start in the order of adding.
  virtual void addOperation(WorkItem operation) = 0;
};

}  // namespace kx
