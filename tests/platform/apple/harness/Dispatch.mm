// libdispatch: each task of a global queue has a thread of its own. One of background priority waits until
// the main thread has nothing better to do.

#import <UIKit/UIKit.h>

#include <atomic>
#include <memory>
#include <mutex>

#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

@protocol OS_dispatch_queue <NSObject>
@end

@interface KXDispatchQueue : NSObject <OS_dispatch_queue> {
 @public
  long priority;
}
@end

@implementation KXDispatchQueue
@end

/// A task for the main thread.
@interface KXDispatchTask : NSObject {
 @public
  dispatch_block_t block;
}
- (void)run;
@end

@implementation KXDispatchTask
- (void)run {
  kx::standin::callOut([self] { block(); });
}
@end

namespace {

thread_local long runningPriority = kx::standin::notAGlobalQueue;

/// The tasks of global queues that have not ended yet.
std::atomic<int> tasksToEnd{0};

KXDispatchQueue *mainQueue() {
  static KXDispatchQueue *const queue = [KXDispatchQueue new];
  return queue;
}

KXDispatchQueue *globalQueue(long priority) {
  static std::mutex *const mutex = new std::mutex;
  static NSMutableDictionary<NSNumber *, KXDispatchQueue *> *const queues = [NSMutableDictionary new];
  const std::lock_guard<std::mutex> lock(*mutex);
  KXDispatchQueue *queue = [queues objectForKey:[NSNumber numberWithLong:priority]];
  if (queue == nil) {
    queue = [KXDispatchQueue new];
    queue->priority = priority;
    [queues setObject:queue forKey:[NSNumber numberWithLong:priority]];
  }
  return queue;
}

void runOnMainThread(dispatch_block_t block, BOOL waits) {
  KXDispatchTask *const task = [KXDispatchTask new];
  task->block = [block copy];
  [task performSelectorOnMainThread:@selector(run)
                         withObject:nil
                      waitUntilDone:waits
                              modes:@[ NSDefaultRunLoopMode, UITrackingRunLoopMode ]];
}

}  // namespace

long kx::standin::currentQueuePriority() {
  return runningPriority;
}

void kx::standin::settleQueues() {
  do {
    if (!runMainLoopUntil([] { return tasksToEnd == 0; })) return complain("a queue's task does not end");
    settleMainLoop();
  } while (tasksToEnd != 0);
}

dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t) {
  return globalQueue(identifier);
}

dispatch_queue_t dispatch_get_main_queue(void) {
  return mainQueue();
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
  if (queue == mainQueue()) {
    runOnMainThread(block, NO);
    return;
  }
  const long priority = static_cast<KXDispatchQueue *>(queue)->priority;
  dispatch_block_t const task = [block copy];
  ++tasksToEnd;
  kx::standin::runOnThreadOfItsOwn([task, priority] {
    runningPriority = priority;
    if (priority == DISPATCH_QUEUE_PRIORITY_BACKGROUND) kx::standin::awaitMainLoop();
    task();
    --tasksToEnd;
  });
}

void dispatch_async_f(dispatch_queue_t queue, void *context, dispatch_function_t work) {
  dispatch_async(queue, ^{
    work(context);
  });
}

void dispatch_sync_f(dispatch_queue_t queue, void *context, dispatch_function_t work) {
  if (queue != mainQueue()) {
    work(context);
    return;
  }
  if ([NSThread isMainThread]) {
    [NSException raise:NSInternalInconsistencyException format:@"The main thread waits for itself"];
  }
  runOnMainThread(
      ^{
        work(context);
      },
      YES);
}

void dispatch_once(dispatch_once_t *predicate, __attribute__((noescape)) dispatch_block_t block) {
  static auto *const mutex = new std::recursive_mutex;
  const std::lock_guard<std::recursive_mutex> lock(*mutex);
  if (*predicate != 0) return;
  block();
  *predicate = -1;
}
