#pragma once

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#include <atomic>

/// What every object of CoreFoundation begins with.
struct CoreFoundationObject {
  std::atomic<int> references{1};
  void (*destroy)(CoreFoundationObject *object);
};

/// A thread's run loop; there is one for each thread that has asked, and it stays as long as the process: the
/// first reference to it is never given back.
struct __CFRunLoop : CoreFoundationObject {
  NSThread *thread;
};
