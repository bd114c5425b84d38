#pragma once

#import <CoreFoundation/CoreFoundation.h>
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
    __attribute__((cf_returns_retained));
Boolean SCNetworkReachabilityGetFlags(SCNetworkReachabilityRef target, SCNetworkReachabilityFlags *flags);
Boolean SCNetworkReachabilitySetCallback(SCNetworkReachabilityRef target,
                                         SCNetworkReachabilityCallBack _Nullable callout,
                                         SCNetworkReachabilityContext *_Nullable context);
Boolean SCNetworkReachabilityScheduleWithRunLoop(SCNetworkReachabilityRef target, CFRunLoopRef runLoop,
                                                 CFStringRef runLoopMode);
Boolean SCNetworkReachabilityUnscheduleFromRunLoop(SCNetworkReachabilityRef target, CFRunLoopRef runLoop,
                                                   CFStringRef runLoopMode);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif
