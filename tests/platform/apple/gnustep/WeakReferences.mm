// Weak references: a table of the variables that refer to an object, which are emptied before it is torn
// down. Compiled without ARC.

#import <Foundation/Foundation.h>
#include <objc/runtime.h>

#include <algorithm>
#include <mutex>
#include <unordered_map>
#include <vector>

extern "C" {
id objc_initWeak(id *variable, id object);
id objc_storeWeak(id *variable, id object);
id objc_loadWeakRetained(id *variable);
id objc_loadWeak(id *variable);
void objc_destroyWeak(id *variable);
void objc_copyWeak(id *destination, id *source);
void objc_moveWeak(id *destination, id *source);
}

namespace {

/// Held for every change of a reference count that may be the last one: who reads a weak variable either
/// finds it empty or holds the object before it goes.
std::mutex &mutex() {
  static auto *const mutex = new std::mutex;
  return *mutex;
}

using Variables = std::unordered_map<id, std::vector<id *>>;
Variables &variablesByObject() {
  static auto *const variables = new Variables;
  return *variables;
}

void refer(id *variable, id object) {
  *variable = object;
  if (object != nil) variablesByObject()[object].push_back(variable);
}

void forget(id *variable) {
  const auto found = variablesByObject().find(*variable);
  if (found == variablesByObject().end()) return;
  std::vector<id *> &variables = found->second;
  variables.erase(std::remove(variables.begin(), variables.end(), variable), variables.end());
  if (variables.empty()) variablesByObject().erase(found);
}

/// The `release` of NSObject.
void release(id self, SEL) {
  {
    const std::lock_guard<std::mutex> lock(mutex());
    if (!NSDecrementExtraRefCountWasZero(self)) return;
    const auto found = variablesByObject().find(self);
    if (found != variablesByObject().end()) {
      for (id *variable : found->second) *variable = nil;
      variablesByObject().erase(found);
    }
  }
  [self dealloc];
}

}  // namespace

id objc_initWeak(id *variable, id object) {
  const std::lock_guard<std::mutex> lock(mutex());
  refer(variable, object);
  return object;
}

id objc_storeWeak(id *variable, id object) {
  const std::lock_guard<std::mutex> lock(mutex());
  forget(variable);
  refer(variable, object);
  return object;
}

id objc_loadWeakRetained(id *variable) {
  const std::lock_guard<std::mutex> lock(mutex());
  return [*variable retain];
}

id objc_loadWeak(id *variable) {
  return [objc_loadWeakRetained(variable) autorelease];
}

void objc_destroyWeak(id *variable) {
  objc_storeWeak(variable, nil);
}

void objc_copyWeak(id *destination, id *source) {
  id const object = objc_loadWeakRetained(source);
  objc_initWeak(destination, object);
  [object release];
}

void objc_moveWeak(id *destination, id *source) {
  objc_copyWeak(destination, source);
  objc_destroyWeak(source);
}

@interface KXWeakReferencesLoader : NSObject
@end

@implementation KXWeakReferencesLoader
+ (void)load {
  Method const method = class_getInstanceMethod([NSObject class], @selector(release));
  method_setImplementation(method, reinterpret_cast<IMP>(release));
}
@end
