#pragma once

#include <dispatch/dispatch.h>
#include <objc/NSObject.h>
#include <os/availability.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#import <CoreFoundation/CoreFoundation.h>

typedef double NSTimeInterval;

#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
#define NS_UNAVAILABLE __attribute__((unavailable))
#define NS_SWIFT_NAME(name) __attribute__((swift_name(#name)))
#define NS_FORMAT_FUNCTION(position, first) __attribute__((format(__NSString__, position, first)))
#define NS_ENUM(type, name) \
  enum name : type name;    \
  enum name : type
#define NS_RETURNS_INNER_POINTER __attribute__((objc_returns_inner_pointer))

#ifdef __cplusplus
#define FOUNDATION_EXPORT extern "C"
#else
#define FOUNDATION_EXPORT extern
#endif

NS_ASSUME_NONNULL_BEGIN

// ---- The root

@class NSString, NSDate, NSTimeZone;

typedef struct _NSZone NSZone;

@protocol NSCopying
- (id)copyWithZone:(nullable NSZone *)zone;
@end

FOUNDATION_EXPORT Class _Nullable NSClassFromString(NSString *className);
FOUNDATION_EXPORT void NSLog(NSString *format, ...) NS_FORMAT_FUNCTION(1, 2);

// ---- Values

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding { NSUTF8StringEncoding = 4, NSISOLatin1StringEncoding = 5 };

@class NSData;

@interface NSString : NSObject <NSCopying>
@property(readonly) NSUInteger length;
+ (nullable instancetype)stringWithUTF8String:(const char *)nullTerminatedCString;
- (nullable instancetype)initWithBytes:(const void *)bytes
                                length:(NSUInteger)length
                              encoding:(NSStringEncoding)encoding;
- (nullable NSData *)dataUsingEncoding:(NSStringEncoding)encoding;
- (BOOL)isEqualToString:(NSString *)string;
@end

@interface NSData : NSObject
+ (instancetype)dataWithBytes:(nullable const void *)bytes length:(NSUInteger)length;
@property(readonly) NSUInteger length;
@property(readonly) const void *bytes NS_RETURNS_INNER_POINTER;
@end

typedef struct {
  unsigned long state;
  id __unsafe_unretained _Nullable *_Nullable itemsPtr;
  unsigned long *_Nullable mutationsPtr;
  unsigned long extra[5];
} NSFastEnumerationState;

@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState *)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)length;
@end

@interface NSArray<__covariant ObjectType> : NSObject <NSFastEnumeration>
@property(readonly) NSUInteger count;
@property(nullable, nonatomic, readonly) ObjectType firstObject API_AVAILABLE(ios(4.0));
- (NSArray<ObjectType> *)sortedArrayUsingSelector:(SEL)comparator;
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject <NSFastEnumeration>
@property(readonly) NSUInteger count;
@property(readonly, copy) NSArray<KeyType> *allKeys;
- (nullable ObjectType)objectForKey:(KeyType)key;
- (nullable ObjectType)objectForKeyedSubscript:(KeyType)key API_AVAILABLE(ios(6.0));
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
- (void)addObject:(ObjectType)object;
@end

@interface NSMutableDictionary<KeyType, ObjectType> : NSDictionary <KeyType, ObjectType>
- (void)setObject:(ObjectType)object forKey:(id<NSCopying>)key;
@end

@interface NSValue : NSObject
+ (NSValue *)valueWithPointer:(nullable const void *)pointer;
@property(readonly) const char *objCType NS_RETURNS_INNER_POINTER;
@end

@interface NSNumber : NSValue
@property(readonly) BOOL boolValue;
@property(readonly) double doubleValue;
@property(readonly) long long longLongValue;
+ (NSNumber *)numberWithBool:(BOOL)value;
+ (NSNumber *)numberWithDouble:(double)value;
+ (NSNumber *)numberWithLongLong:(long long)value;
@end

typedef NSInteger NSComparisonResult;

@interface NSString (Comparing)
- (NSComparisonResult)compare:(NSString *)string;
@end

@interface NSDate : NSObject
+ (instancetype)date;
@property(readonly) NSTimeInterval timeIntervalSince1970;
@end

@interface NSTimeZone : NSObject
@property(readonly) NSInteger secondsFromGMT;
@end

@interface NSError : NSObject
@property(readonly, copy) NSString *domain;
@property(readonly) NSInteger code;
@property(readonly, copy) NSString *localizedDescription;
@end

typedef NSUInteger NSJSONWritingOptions;

API_AVAILABLE(ios(5.0))
@interface NSJSONSerialization : NSObject
+ (BOOL)isValidJSONObject:(id)object;
+ (nullable NSData *)dataWithJSONObject:(id)object
                                options:(NSJSONWritingOptions)options
                                  error:(NSError *_Nullable *_Nullable)error;
@end

API_AVAILABLE(ios(6.0))
@interface NSUUID : NSObject
@property(readonly, copy) NSString *UUIDString;
@end

typedef NSString *NSExceptionName;

@interface NSException : NSObject
@property(readonly, copy) NSExceptionName name;
@property(nullable, readonly, copy) NSString *reason;
@end

// ---- The process and its user

@interface NSBundle : NSObject
@property(class, readonly, strong) NSBundle *mainBundle;
+ (nullable NSBundle *)bundleWithIdentifier:(NSString *)identifier;
@property(nullable, readonly, copy) NSString *bundleIdentifier;
- (nullable id)objectForInfoDictionaryKey:(NSString *)key;
@end

@interface NSLocale : NSObject
@property(class, readonly, copy) NSArray<NSString *> *preferredLanguages;
@end

@interface NSProcessInfo : NSObject
@property(class, readonly, strong) NSProcessInfo *processInfo;
@property(readonly, copy) NSString *globallyUniqueString;
@end

// ---- Threads, queues, timers, notifications

@interface NSThread : NSObject
@property(class, readonly) BOOL isMainThread;
@end

@interface NSOperation : NSObject
@end

API_AVAILABLE(ios(4.0))
@interface NSBlockOperation : NSOperation
+ (instancetype)blockOperationWithBlock:(void (^)(void))block;
@end

@interface NSOperationQueue : NSObject
@property(class, readonly, strong) NSOperationQueue *mainQueue API_AVAILABLE(ios(4.0));
- (void)addOperation:(NSOperation *)operation;
@end

typedef NSString *NSRunLoopMode;
FOUNDATION_EXPORT NSRunLoopMode const NSDefaultRunLoopMode;
FOUNDATION_EXPORT NSRunLoopMode const NSRunLoopCommonModes;

@interface NSTimer : NSObject
+ (NSTimer *)timerWithTimeInterval:(NSTimeInterval)interval
                            target:(id)target
                          selector:(SEL)selector
                          userInfo:(nullable id)userInfo
                           repeats:(BOOL)repeats;
- (void)invalidate;
@end

@interface NSRunLoop : NSObject
@property(class, readonly, strong) NSRunLoop *currentRunLoop;
@property(class, readonly, strong) NSRunLoop *mainRunLoop;
- (void)addTimer:(NSTimer *)timer forMode:(NSRunLoopMode)mode;
@end

typedef NSString *NSNotificationName;

@interface NSNotification : NSObject
@property(readonly, copy) NSNotificationName name;
@property(nullable, readonly, retain) id object;
@end

@interface NSNotificationCenter : NSObject
@property(class, readonly, strong) NSNotificationCenter *defaultCenter;
- (void)addObserver:(id)observer
           selector:(SEL)selector
               name:(nullable NSNotificationName)name
             object:(nullable id)object;
- (void)postNotificationName:(NSNotificationName)name object:(nullable id)object;
- (void)removeObserver:(id)observer;
- (id<NSObject>)addObserverForName:(nullable NSNotificationName)name
                            object:(nullable id)object
                             queue:(nullable NSOperationQueue *)queue
                        usingBlock:(void (^)(NSNotification *notification))block API_AVAILABLE(ios(4.0));
@end

// ---- URLs

@interface NSURL : NSObject
+ (nullable instancetype)URLWithString:(NSString *)string;
@property(nullable, readonly, copy) NSString *absoluteString;
@end

@interface NSURLRequest : NSObject
+ (instancetype)requestWithURL:(NSURL *)url;
@end

@interface NSMutableURLRequest : NSURLRequest
@property(copy) NSString *HTTPMethod;
- (void)setValue:(nullable NSString *)value forHTTPHeaderField:(NSString *)field;
@end

@interface NSURLResponse : NSObject
@end

@interface NSHTTPURLResponse : NSURLResponse
@property(readonly) NSInteger statusCode;
@property(readonly, copy) NSDictionary *allHeaderFields;
@end

// ---- What the classes beside the publisher's need

@interface NSObject (Messages)
- (IMP)methodForSelector:(SEL)selector;
- (void)doesNotRecognizeSelector:(SEL)selector;
+ (void)load;
@end

FOUNDATION_EXPORT NSString *NSStringFromSelector(SEL selector);

@interface NSString (Formatting)
- (instancetype)initWithFormat:(NSString *)format arguments:(va_list)arguments NS_FORMAT_FUNCTION(1, 0);
@end

@interface NSException (Raising)
+ (NSException *)exceptionWithName:(NSExceptionName)name
                            reason:(nullable NSString *)reason
                          userInfo:(nullable NSDictionary *)userInfo;
+ (void)raise:(NSExceptionName)name format:(NSString *)format, ... NS_FORMAT_FUNCTION(2, 3);
@end

FOUNDATION_EXPORT NSExceptionName const NSInternalInconsistencyException;
FOUNDATION_EXPORT NSExceptionName const NSInvalidArgumentException;
FOUNDATION_EXPORT NSExceptionName const NSRangeException;

@interface NSArray <ObjectType>(Making)
+ (instancetype)array;
@end

@interface NSDictionary <KeyType, ObjectType>(Making)
+ (instancetype)dictionary;
@end

@interface NSTimer (Validity)
@property(readonly, getter=isValid) BOOL valid;
@end

NS_ASSUME_NONNULL_END

#import <Foundation/NSURLSession.h>
