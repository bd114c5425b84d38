#pragma once

// GCC's <objc/runtime.h>, which does not compile under ARC: there, only what gnustep-base's headers need of
// it.

#if __has_feature(objc_arc)
#include <objc/objc.h>
typedef struct objc_ivar *Ivar;
typedef struct objc_method *Method;
// And what the library needs.
#ifdef __cplusplus
extern "C" {
#endif
const char *sel_getName(SEL selector);
SEL sel_registerName(const char *name);
BOOL sel_isEqual(SEL left, SEL right);
#ifdef __cplusplus
}
#endif
#else
#include_next <objc/runtime.h>
#endif
