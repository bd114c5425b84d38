#include <map>
#include <mutex>

#include "tests/platform/apple/harness/CoreFoundationObject.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFRunLoopMode kCFRunLoopDefaultMode = (__bridge CFStringRef) @"NSDefaultRunLoopMode";
const CFRunLoopMode kCFRunLoopCommonModes = (__bridge CFStringRef) @"NSRunLoopCommonModes";

namespace {

CoreFoundationObject *objectOf(CFTypeRef reference) {
  return static_cast<CoreFoundationObject *>(const_cast<void *>(reference));
}

struct RunLoops {
  std::mutex mutex;
  std::map<NSThread *, CFRunLoopRef> byThread;
};

RunLoops &runLoops() {
  static auto *const runLoops = new RunLoops;
  return *runLoops;
}

CFRunLoopRef runLoopOf(NSThread *thread) {
  const std::lock_guard<std::mutex> lock(runLoops().mutex);
  CFRunLoopRef &runLoop = runLoops().byThread[thread];
  if (runLoop == nullptr) {
    runLoop = new __CFRunLoop;
    runLoop->thread = thread;
    runLoop->destroy = [](CoreFoundationObject *) {
      kx::standin::complain("a CFRunLoop is released more often than retained");
    };
  }
  return runLoop;
}

}  // namespace

CFTypeRef CFRetain(CFTypeRef object) {
  ++objectOf(object)->references;
  return object;
}

void CFRelease(CFTypeRef object) {
  if (--objectOf(object)->references == 0) objectOf(object)->destroy(objectOf(object));
}

CFRunLoopRef CFRunLoopGetCurrent(void) {
  return runLoopOf([NSThread currentThread]);
}

CFRunLoopRef CFRunLoopGetMain(void) {
  return runLoopOf([NSThread mainThread]);
}

namespace kx::standin {

int heldRunLoops(bool mainOne) {
  const std::lock_guard<std::mutex> lock(runLoops().mutex);
  int references = 0;
  for (const auto &[thread, runLoop] : runLoops().byThread) {
    if ((thread == [NSThread mainThread]) == mainOne) references += runLoop->references - 1;
  }
  return references;
}

}  // namespace kx::standin
