#import <Foundation/Foundation.h>

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>

#include "tests/platform/apple/gnustep/ClassInitialization.h"

#if __has_feature(thread_sanitizer)
/// Foundation and the Objective-C runtime are not built for it.
extern "C" const char *__tsan_default_options() {
  return "ignore_noninstrumented_modules=1";
}
#endif

int main(int argumentCount, char **arguments) {
  @autoreleasepool {
    KXInitializeClasses();
    ::testing::InitGoogleMock(&argumentCount, arguments);
    const int result = RUN_ALL_TESTS();
    std::fflush(nullptr);
    // As an app ends: nothing is torn down, and the library's threads go on to the last.
    _exit(result);
  }
}
