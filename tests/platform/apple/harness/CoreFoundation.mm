#include <map>
#include <mutex>

#include "tests/platform/apple/harness/CoreFoundationObject.h"

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFRunLoopMode kCFRunLoopDefaultMode = (__bridge CFStringRef) @"NSDefaultRunLoopMode";
const CFRunLoopMode kCFRunLoopCommonModes = (__bridge CFStringRef) @"NSRunLoopCommonModes";

namespace {

CoreFoundationObject *objectOf(CFTypeRef reference) {
  return static_cast<CoreFoundationObject *>(const_cast<void *>(reference));
}

CFRunLoopRef runLoopOf(NSThread *thread) {
  static auto *const mutex = new std::mutex;
  static auto *const runLoops = new std::map<NSThread *, CFRunLoopRef>;
  const std::lock_guard<std::mutex> lock(*mutex);
  CFRunLoopRef &runLoop = (*runLoops)[thread];
  if (runLoop == nullptr) {
    runLoop = new __CFRunLoop;
    runLoop->thread = thread;
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
