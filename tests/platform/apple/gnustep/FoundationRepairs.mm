// Where gnustep-base's Foundation, and GCC's runtime below it, do otherwise than Apple's. Compiled without
// ARC.

#import <Foundation/Foundation.h>
#include <objc/message.h>
#include <objc/runtime.h>

#include <vector>

#include "tests/platform/apple/gnustep/ClassInitialization.h"

namespace {

IMP replace(Class kind, SEL selector, IMP implementation) {
  return method_setImplementation(class_getInstanceMethod(kind, selector), implementation);
}

/// The modes in which an iPhone's run loop serves what is added in the common modes.
NSArray *commonModes() {
  return @[ NSDefaultRunLoopMode, @"UITrackingRunLoopMode" ];
}

// NSRunLoopCommonModes is a mode by itself there, which no run loop ever runs in.
using AddTimer = void (*)(id, SEL, NSTimer *, NSString *);
AddTimer originalAddTimer;

void addTimer(NSRunLoop *self, SEL selector, NSTimer *timer, NSString *mode) {
  if (![mode isEqualToString:NSRunLoopCommonModes]) {
    originalAddTimer(self, selector, timer, mode);
    return;
  }
  for (NSString *commonMode in commonModes()) originalAddTimer(self, selector, timer, commonMode);
}

// The main operation queue has worker threads there.
using AddOperation = void (*)(id, SEL, NSOperation *);
AddOperation originalAddOperation;

void addOperation(NSOperationQueue *self, SEL selector, NSOperation *operation) {
  if (self != [NSOperationQueue mainQueue]) {
    originalAddOperation(self, selector, operation);
  } else if ([NSThread isMainThread]) {
    [operation start];
  } else {
    [operation performSelectorOnMainThread:@selector(start)
                                withObject:nil
                             waitUntilDone:NO
                                     modes:commonModes()];
  }
}

// User defaults are kept in the user's home folder there, behind a lock of all processes. Here nothing is
// kept.
BOOL synchronize(NSUserDefaults *, SEL) {
  return YES;
}

}  // namespace

@interface KXFoundationRepairsLoader : NSObject
@end

@implementation KXFoundationRepairsLoader
+ (void)load {
  NSAutoreleasePool *const pool = [NSAutoreleasePool new];
  originalAddTimer = reinterpret_cast<AddTimer>(
      replace([NSRunLoop class], @selector(addTimer:forMode:), reinterpret_cast<IMP>(addTimer)));
  originalAddOperation = reinterpret_cast<AddOperation>(
      replace([NSOperationQueue class], @selector(addOperation:), reinterpret_cast<IMP>(addOperation)));
  replace([NSUserDefaults class], @selector(synchronize), reinterpret_cast<IMP>(synchronize));
  [pool release];
}
@end

void KXInitializeClasses(void) {
  std::vector<Class> classes(static_cast<std::size_t>(objc_getClassList(nullptr, 0)));
  objc_getClassList(classes.data(), static_cast<int>(classes.size()));
  // The first look at a class's methods initialises it.
  for (Class kind : classes) objc_msg_lookup(static_cast<id>(kind), @selector(class));
}
