#pragma once

// As much of Foundation as the library's headers for Objective-C name. Swift reads them with it, on Linux and
// as if for Linux: Apple's headers are not for that.

#include <stddef.h>
#include <stdint.h>

#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
#define NS_UNAVAILABLE __attribute__((unavailable))
#define NS_DESIGNATED_INITIALIZER __attribute__((objc_designated_initializer))
#define NS_REQUIRES_SUPER __attribute__((objc_requires_super))
#define NS_SWIFT_NAME(name) __attribute__((swift_name(#name)))
#define NS_REFINED_FOR_SWIFT __attribute__((swift_private))
#define NS_SWIFT_SENDABLE __attribute__((swift_attr("@Sendable")))
#define NS_SWIFT_NONSENDABLE __attribute__((swift_attr("@_nonSendable")))
#define NS_SWIFT_UI_ACTOR __attribute__((swift_attr("@UIActor")))
#define NS_SWIFT_DISABLE_ASYNC __attribute__((swift_async(none)))
#define NS_FORMAT_FUNCTION(position, first)
#define API_AVAILABLE(...)
#define API_DEPRECATED(...)
#define FOUNDATION_EXPORT extern
#define NS_ENUM(type, name)                                        \
  enum __attribute__((enum_extensibility(open))) name : type name; \
  enum name : type

typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double NSTimeInterval;
typedef signed char BOOL;

NS_ASSUME_NONNULL_BEGIN

__attribute__((objc_root_class))
@interface NSObject
+ (instancetype)new;
+ (instancetype)alloc;
- (instancetype)init;
@end

@protocol NSObject
@end

@protocol NSCopying
@end

@interface NSString : NSObject <NSCopying>
@end
typedef NSString *NSNotificationName;

@interface NSValue : NSObject
@end

@interface NSNumber : NSValue
@end

@interface NSData : NSObject
@end

@interface NSDate : NSObject
@end

@interface NSError : NSObject
@end

@interface NSNotification : NSObject
@end

@interface NSTimer : NSObject
@end

@interface NSURL : NSObject
@end

@interface NSURLSession : NSObject
@end

@interface NSURLRequest : NSObject
@end

@interface NSMutableURLRequest : NSURLRequest
@end

@interface NSURLResponse : NSObject
@end

@interface NSURLSessionUploadTask : NSObject
@end

@interface NSArray<__covariant ObjectType> : NSObject
@property(readonly) NSUInteger count;
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject
@end

@interface NSMutableDictionary<KeyType, ObjectType> : NSDictionary <KeyType, ObjectType>
@end

NS_ASSUME_NONNULL_END
