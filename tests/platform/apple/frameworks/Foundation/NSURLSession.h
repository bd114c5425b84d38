#pragma once

// A part of Foundation, to be included by a Foundation.h once that has declared NSObject, NSData and the
// like.

#include <os/availability.h>

NS_ASSUME_NONNULL_BEGIN

API_AVAILABLE(ios(7.0))
@interface NSURLSessionConfiguration : NSObject
@property(class, readonly, strong) NSURLSessionConfiguration *defaultSessionConfiguration;
@end

API_AVAILABLE(ios(7.0))
@interface NSURLSessionTask : NSObject
- (void)resume;
@end

API_AVAILABLE(ios(7.0))
@interface NSURLSessionDataTask : NSURLSessionTask
@end

API_AVAILABLE(ios(7.0))
@interface NSURLSessionUploadTask : NSURLSessionDataTask
@end

API_AVAILABLE(ios(7.0))
@interface NSURLSession : NSObject
+ (NSURLSession *)sessionWithConfiguration:(NSURLSessionConfiguration *)configuration;
- (NSURLSessionUploadTask *)uploadTaskWithRequest:(NSURLRequest *)request
                                         fromData:(nullable NSData *)bodyData
                                completionHandler:(void (^)(NSData *_Nullable data,
                                                            NSURLResponse *_Nullable response,
                                                            NSError *_Nullable error))completionHandler;
- (void)finishTasksAndInvalidate;
@end

NS_ASSUME_NONNULL_END
