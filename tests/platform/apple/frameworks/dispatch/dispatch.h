#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma clang assume_nonnull begin

/* A queue is an Objective-C object, which ARC retains. */
@class NSObject;
@protocol OS_dispatch_queue;
typedef NSObject<OS_dispatch_queue> *dispatch_queue_t;
typedef void (*dispatch_function_t)(void *_Nullable context);
typedef void (^dispatch_block_t)(void);
typedef intptr_t dispatch_once_t;

#define DISPATCH_QUEUE_PRIORITY_HIGH 2
#define DISPATCH_QUEUE_PRIORITY_DEFAULT 0
#define DISPATCH_QUEUE_PRIORITY_LOW (-2)
#define DISPATCH_QUEUE_PRIORITY_BACKGROUND INT16_MIN

dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags);
dispatch_queue_t dispatch_get_main_queue(void);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
void dispatch_async_f(dispatch_queue_t queue, void *_Nullable context, dispatch_function_t work);
void dispatch_sync_f(dispatch_queue_t queue, void *_Nullable context, dispatch_function_t work);
void dispatch_once(dispatch_once_t *predicate, __attribute__((noescape)) dispatch_block_t block);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif
