#include "platform/apple/AppleDispatch.h"

#include <memory>
#include <utility>

#include "platform/apple/AppleCallbackBoundary.h"

namespace kx {

namespace {

void runOwnedTask(void *context) {
  runAtBoundary([context] {
    const std::unique_ptr<WorkItem> task(static_cast<WorkItem *>(context));
    (*task)();
  });
}

void runCallersTask(void *context) {
  runAtBoundary([context] {
    const WorkItem task = std::move(*static_cast<WorkItem *>(context));
    task();
  });
}

}  // namespace

void performOnMainThread(WorkItem block) {
  if ([NSThread isMainThread]) {
    block();
  } else {
    dispatch_async_f(dispatch_get_main_queue(), new WorkItem(std::move(block)), &runOwnedTask);
  }
}

void AppleDispatchQueue::async(WorkItem task) {
  dispatch_async_f(queue_, new WorkItem(std::move(task)), &runOwnedTask);
}

void AppleDispatchQueue::sync(WorkItem task) {
  dispatch_sync_f(queue_, &task, &runCallersTask);
}

AppleDispatch::AppleDispatch()
    : high_(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH, 0)),
      standard_(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0)),
      low_(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_LOW, 0)),
      background_(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND, 0)),
      main_(dispatch_get_main_queue()) {}

DispatchQueue &AppleDispatch::globalQueue(DispatchQueuePriority priority) {
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

}  // namespace kx
