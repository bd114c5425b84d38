#pragma once

#include <stdexcept>
#include <utility>

#include "KXPublisher/platform/DispatchQueue.h"

namespace kx {

/// A device's queues on which nothing can be submitted, as when there is no memory for it, until they are
/// told to work again.
class FailingDispatch : public Dispatch {
 public:
  explicit FailingDispatch(Dispatch &dispatch) : dispatch_(dispatch) {}

  bool fails = true;

  DispatchQueue &globalQueue(DispatchQueuePriority priority) override {
    if (fails) throw std::runtime_error("no queue");
    return dispatch_.globalQueue(priority);
  }
  DispatchQueue &mainQueue() override { return dispatch_.mainQueue(); }
  bool isMainThread() override { return dispatch_.isMainThread(); }

 private:
  Dispatch &dispatch_;
};

}  // namespace kx
