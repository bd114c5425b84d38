#pragma once
#pragma clang system_header  // for #include_next

// What the simulated device for unit tests, and the tests, need of Foundation beyond what the library does.

#include_next <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

#ifndef NS_ENUM
#define NS_ENUM(type, name)                                        \
  enum __attribute__((enum_extensibility(open))) name : type name; \
  enum name : type
#endif

FOUNDATION_EXPORT NSExceptionName const NSInternalInconsistencyException;

@interface NSException (Raising)
+ (void)raise:(NSExceptionName)name format:(NSString *)format, ... NS_FORMAT_FUNCTION(2, 3);
@end

@interface NSString (UTF8)
@property(nullable, readonly) const char *UTF8String NS_RETURNS_INNER_POINTER;
@end

@interface NSArray <ObjectType>(Last)
@property(nullable, nonatomic, readonly) ObjectType lastObject;
@end

@interface NSMutableArray <ObjectType>(Making)
+ (instancetype)array;
- (void)addObjectsFromArray:(NSArray<ObjectType> *)otherArray;
@end

typedef NSUInteger NSJSONReadingOptions;

@interface NSJSONSerialization (Reading)
+ (nullable id)JSONObjectWithData:(NSData *)data
                          options:(NSJSONReadingOptions)options
                            error:(NSError *_Nullable *_Nullable)error;
@end

NS_ASSUME_NONNULL_END
