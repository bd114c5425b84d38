#pragma once

#import <CoreFoundation/CoreFoundation.h>
#include <os/availability.h>
#include <stdint.h>
#include <sys/socket.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma clang assume_nonnull begin

typedef const struct __SCNetworkReachability *SCNetworkReachabilityRef;
typedef uint32_t SCNetworkReachabilityFlags;
typedef void (*SCNetworkReachabilityCallBack)(SCNetworkReachabilityRef target,
                                              SCNetworkReachabilityFlags flags, void *_Nullable info);
typedef struct {
  CFIndex version;
  void *_Nullable info;
  const void *_Nonnull (*_Nullable retain)(const void *info);
  void (*_Nullable release)(const void *info);
  CFStringRef _Nonnull (*_Nullable copyDescription)(const void *info);
} SCNetworkReachabilityContext;

SCNetworkReachabilityRef _Nullable SCNetworkReachabilityCreateWithAddress(CFAllocatorRef _Nullable allocator,
                                                                          const struct sockaddr *address)
    __attribute__((cf_returns_retained)) API_DEPRECATED("", ios(2.0, 17.4));
Boolean SCNetworkReachabilityGetFlags(SCNetworkReachabilityRef target, SCNetworkReachabilityFlags *flags)
    API_DEPRECATED("", ios(2.0, 17.4));
Boolean SCNetworkReachabilitySetCallback(SCNetworkReachabilityRef target,
                                         SCNetworkReachabilityCallBack _Nullable callout,
                                         SCNetworkReachabilityContext *_Nullable context)
    API_DEPRECATED("", ios(2.0, 17.4));
Boolean SCNetworkReachabilityScheduleWithRunLoop(SCNetworkReachabilityRef target, CFRunLoopRef runLoop,
                                                 CFStringRef runLoopMode) API_DEPRECATED("", ios(2.0, 17.4));
Boolean SCNetworkReachabilityUnscheduleFromRunLoop(SCNetworkReachabilityRef target, CFRunLoopRef runLoop,
                                                   CFStringRef runLoopMode)
    API_DEPRECATED("", ios(2.0, 17.4));

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif
