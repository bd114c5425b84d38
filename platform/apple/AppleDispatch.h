#pragma once

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include "KXPublisher/platform/DispatchQueue.h"

namespace kx {

/// Runs `block` at once when called on the main thread, otherwise soon, on the main thread. For what may be
/// used on that thread only.
void performOnMainThread(WorkItem block);

/// A queue of libdispatch. What a task throws ends with it.
class AppleDispatchQueue : public DispatchQueue {
 public:
  explicit AppleDispatchQueue(dispatch_queue_t _Nonnull queue) : queue_(queue) {}

  void async(WorkItem task) override;
  void sync(WorkItem task) override;

 private:
  const dispatch_queue_t _Nonnull queue_;
};

/// libdispatch's global queues and its main queue.
class AppleDispatch : public Dispatch {
 public:
  AppleDispatch();

  DispatchQueue &globalQueue(DispatchQueuePriority priority) override;
  DispatchQueue &mainQueue() override { return main_; }
  bool isMainThread() override { return [NSThread isMainThread]; }

 private:
  AppleDispatchQueue high_;
  AppleDispatchQueue standard_;
  AppleDispatchQueue low_;
  AppleDispatchQueue background_;
  AppleDispatchQueue main_;
};

}  // namespace kx
