// What ARC calls, on objects that count their references themselves. Compiled without ARC.

#import <Foundation/Foundation.h>

#include <cstddef>
#include <mutex>

namespace {

/// Guards every atomic property.
std::mutex &propertyMutex() {
  static auto *const mutex = new std::mutex;
  return *mutex;
}

id *propertyAt(id self, std::ptrdiff_t offset) {
  return reinterpret_cast<id *>(reinterpret_cast<char *>(self) + offset);
}

/// Stores a value that has been retained or copied already.
void setAtomicProperty(id self, std::ptrdiff_t offset, id value) {
  id *const property = propertyAt(self, offset);
  id old = nil;
  {
    const std::lock_guard<std::mutex> lock(propertyMutex());
    old = *property;
    *property = value;
  }
  [old release];
}

}  // namespace

extern "C" {

id objc_retain(id object) {
  return [object retain];
}

void objc_release(id object) {
  [object release];
}

id objc_autorelease(id object) {
  return [object autorelease];
}

id objc_retainAutorelease(id object) {
  return [[object retain] autorelease];
}

// The handing over of a result always goes by way of the autorelease pool.

id objc_autoreleaseReturnValue(id object) {
  return [object autorelease];
}

id objc_retainAutoreleaseReturnValue(id object) {
  return [[object retain] autorelease];
}

id objc_retainAutoreleasedReturnValue(id object) {
  return [object retain];
}

id objc_unsafeClaimAutoreleasedReturnValue(id object) {
  return object;
}

void objc_storeStrong(id *variable, id value) {
  id const old = *variable;
  *variable = [value retain];
  [old release];
}

void *objc_autoreleasePoolPush() {
  return [[NSAutoreleasePool alloc] init];
}

void objc_autoreleasePoolPop(void *pool) {
  [static_cast<NSAutoreleasePool *>(pool) release];
}

// ---- Properties. GCC's runtime has a getter too; it locks otherwise than these setters, and so is replaced.

id objc_getProperty(id self, SEL, std::ptrdiff_t offset, BOOL atomic) {
  id *const property = propertyAt(self, offset);
  if (!atomic) return *property;
  id value = nil;
  {
    const std::lock_guard<std::mutex> lock(propertyMutex());
    value = [*property retain];
  }
  return [value autorelease];
}

void objc_setProperty_atomic(id self, SEL, id value, std::ptrdiff_t offset) {
  setAtomicProperty(self, offset, [value retain]);
}

void objc_setProperty_atomic_copy(id self, SEL, id value, std::ptrdiff_t offset) {
  setAtomicProperty(self, offset, [value copy]);
}

void objc_setProperty_nonatomic_copy(id self, SEL, id value, std::ptrdiff_t offset) {
  id *const property = propertyAt(self, offset);
  id const old = *property;
  *property = [value copy];
  [old release];
}

// ---- Exceptions, which are the same ones in Objective-C and in C++.

int __gxx_personality_v0(int version, int actions, unsigned long kind, void *exception, void *context);

int __gnustep_objcxx_personality_v0(int version, int actions, unsigned long kind, void *exception,
                                    void *context) {
  return __gxx_personality_v0(version, actions, kind, exception, context);
}
}
