#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// Initialises every class there is. To be called on the main thread before there are others: GCC's runtime
/// holds its one lock while a class initialises itself, and some classes of gnustep-base then wait for locks
/// of their own.
void KXInitializeClasses(void);

#ifdef __cplusplus
}
#endif
