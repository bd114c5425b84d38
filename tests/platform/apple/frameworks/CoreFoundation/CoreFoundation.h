#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#pragma clang assume_nonnull begin

typedef unsigned char Boolean;
typedef signed long CFIndex;
typedef const void *CFTypeRef;
typedef const struct __attribute__((objc_bridge(NSString))) __CFString *CFStringRef;
typedef const struct __CFAllocator *CFAllocatorRef;
typedef struct __CFRunLoop *CFRunLoopRef;
typedef CFStringRef CFRunLoopMode;

extern const CFAllocatorRef _Null_unspecified kCFAllocatorDefault;
extern const CFRunLoopMode kCFRunLoopDefaultMode;
extern const CFRunLoopMode kCFRunLoopCommonModes;

CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
CFRunLoopRef CFRunLoopGetCurrent(void);
CFRunLoopRef CFRunLoopGetMain(void);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif
