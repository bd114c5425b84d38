#pragma once

// gnustep-base's Foundation, with what Apple's has besides.

#include_next <Foundation/Foundation.h>

#undef NS_UNAVAILABLE
#define NS_UNAVAILABLE __attribute__((unavailable))
#define NS_SWIFT_NAME(name)

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/NSURLSession.h>
#include <dispatch/dispatch.h>
