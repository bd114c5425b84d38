#include "platform/apple/AppleOperationQueue.h"

#import <Foundation/Foundation.h>

#include "platform/apple/AppleCallbackBoundary.h"

namespace kx {

void AppleMainOperationQueue::addOperation(WorkItem operation) {
  NSBlockOperation *const blockOperation = [NSBlockOperation blockOperationWithBlock:^{
    runAtBoundary(operation);
  }];
  [[NSOperationQueue mainQueue] addOperation:blockOperation];
}

}  // namespace kx
