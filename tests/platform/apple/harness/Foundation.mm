#include "tests/platform/apple/harness/Foundation.h"

#import <Foundation/Foundation.h>
#include <objc/runtime.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include "tests/platform/apple/harness/LiveObjects.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

using kx::standin::complain;

// Of the runtime, whose own header does not compile under ARC.
extern "C" {
Method class_getClassMethod(Class kind, SEL selector);
Method class_getInstanceMethod(Class kind, SEL selector);
IMP method_setImplementation(Method method, IMP implementation);
}

namespace {

/// Puts another implementation of a method in front of the one that there is, which is returned.
template <class Implementation>
Implementation *replace(Method method, Implementation *implementation) {
  return reinterpret_cast<Implementation *>(
      method_setImplementation(method, reinterpret_cast<IMP>(implementation)));
}

// ---- Timers

kx::standin::LiveObjects<NSTimer> &timers() {
  static auto *const timers = new kx::standin::LiveObjects<NSTimer>;
  return *timers;
}

/// The thread on whose run loop each timer is.
struct Installations {
  std::mutex mutex;
  std::map<const void *, NSThread *> threads;
};

Installations &installations() {
  static auto *const installations = new Installations;
  return *installations;
}

using MakeTimer = id(id, SEL, NSTimeInterval, id, SEL, id, BOOL);
MakeTimer *originalMakeTimer;

id makeTimer(id self, SEL selector, NSTimeInterval interval, id target, SEL action, id information,
             BOOL repeats) {
  id const timer = originalMakeTimer(self, selector, interval, target, action, information, repeats);
  {
    // Another one may have been at this address.
    const std::lock_guard<std::mutex> lock(installations().mutex);
    installations().threads.erase((__bridge const void *)timer);
  }
  timers().add(static_cast<NSTimer *>(timer));
  return timer;
}

using AddTimer = void(id, SEL, NSTimer *, NSString *);
AddTimer *originalAddTimer;

void addTimer(id self, SEL selector, NSTimer *timer, NSString *mode) {
  if (self != [NSRunLoop currentRunLoop]) complain("NSRunLoop is used on another thread");
  {
    const std::lock_guard<std::mutex> lock(installations().mutex);
    installations().threads[(__bridge const void *)timer] = [NSThread currentThread];
  }
  originalAddTimer(self, selector, timer, mode);
}

using Invalidate = void(id, SEL);
Invalidate *originalInvalidate;

void invalidate(id self, SEL selector) {
  {
    const std::lock_guard<std::mutex> lock(installations().mutex);
    const auto found = installations().threads.find((__bridge const void *)self);
    if (found != installations().threads.end()) {
      if (found->second != [NSThread currentThread]) complain("NSTimer is invalidated on another thread");
      installations().threads.erase(found);
    }
  }
  originalInvalidate(self, selector);
}

// ---- Languages

std::atomic<bool> hasLanguages{false};
NSArray<NSString *> *languages = nil;

using PreferredLanguages = NSArray *(id, SEL);
PreferredLanguages *originalPreferredLanguages;

NSArray *preferredLanguages(id self, SEL selector) {
  return hasLanguages ? languages : originalPreferredLanguages(self, selector);
}

// ---- URLs

using URLWithString = id(id, SEL, NSString *);
URLWithString *originalURLWithString;

id makeURL(id self, SEL selector, NSString *text) {
  if (text == nil) complain("NSURL is made of nil");
  return originalURLWithString(self, selector, text);
}

// ---- Autorelease pools, whose absence gnustep-base tells in the log.

NSLog_printf_handler *originalLog;

void takeLogLine(NSString *line) {
  if ([line rangeOfString:@"autorelease called without pool"].location != NSNotFound) {
    complain(std::string("an autorelease pool is missing: ") + line.UTF8String);
  }
  originalLog(line);
}

}  // namespace

namespace kx::standin {

void watchFoundation() {
  constexpr auto classMethod = class_getClassMethod;
  constexpr auto method = class_getInstanceMethod;
  originalMakeTimer = replace(
      classMethod([NSTimer class], @selector(timerWithTimeInterval:target:selector:userInfo:repeats:)),
      makeTimer);
  originalAddTimer = replace(method([NSRunLoop class], @selector(addTimer:forMode:)), addTimer);
  originalInvalidate = replace(method([NSTimer class], @selector(invalidate)), invalidate);
  originalPreferredLanguages =
      replace(classMethod([NSLocale class], @selector(preferredLanguages)), preferredLanguages);
  originalURLWithString = replace(classMethod([NSURL class], @selector(URLWithString:)), makeURL);
  originalLog = _NSLog_printf_handler;
  _NSLog_printf_handler = takeLogLine;
}

int aliveTimers() {
  @autoreleasepool {
    // A run loop here lets go of an invalid timer when it next serves the mode.
    for (NSString *mode in @[ NSDefaultRunLoopMode, UITrackingRunLoopMode ])
      static_cast<void>([[NSRunLoop mainRunLoop] limitDateForMode:mode]);
  }
  @autoreleasepool {
    return static_cast<int>(timers().all().size());
  }
}

int installedTimers() {
  @autoreleasepool {
    int installed = 0;
    for (NSTimer *timer : timers().all()) {
      const std::lock_guard<std::mutex> lock(installations().mutex);
      if (timer.isValid && installations().threads.count((__bridge const void *)timer) != 0) ++installed;
    }
    return installed;
  }
}

void setPreferredLanguages(NSArray<NSString *> *preferred) {
  languages = preferred;
  hasLanguages = preferred != nil;
}

}  // namespace kx::standin
