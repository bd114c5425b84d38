#pragma once

#import <Foundation/Foundation.h>
#include <os/availability.h>

NS_ASSUME_NONNULL_BEGIN

FOUNDATION_EXPORT NSString *const UIApplicationDidEnterBackgroundNotification API_AVAILABLE(ios(4.0));
FOUNDATION_EXPORT NSString *const UIApplicationWillEnterForegroundNotification API_AVAILABLE(ios(4.0));

typedef NSUInteger UIBackgroundTaskIdentifier;
FOUNDATION_EXPORT const UIBackgroundTaskIdentifier UIBackgroundTaskInvalid API_AVAILABLE(ios(4.0));

enum : NSInteger {
  UIBackgroundRefreshStatusRestricted = 0,
  UIBackgroundRefreshStatusDenied = 1,
  UIBackgroundRefreshStatusAvailable = 2,
};
typedef NSInteger UIBackgroundRefreshStatus;

@interface UIResponder : NSObject
@end

@interface UIApplication : UIResponder
@property(class, nonatomic, readonly) UIApplication *sharedApplication;
@property(nonatomic, readonly) UIBackgroundRefreshStatus backgroundRefreshStatus API_AVAILABLE(ios(7.0));
- (UIBackgroundTaskIdentifier)beginBackgroundTaskWithName:(nullable NSString *)taskName
                                        expirationHandler:(void (^_Nullable)(void))handler
    API_AVAILABLE(ios(7.0));
- (void)endBackgroundTask:(UIBackgroundTaskIdentifier)identifier API_AVAILABLE(ios(4.0));
@end

typedef NSInteger UIUserInterfaceIdiom;

@interface UIDevice : NSObject
@property(class, nonatomic, readonly) UIDevice *currentDevice;
@property(nonatomic, readonly) NSString *model;
@property(nonatomic, readonly) NSString *systemName;
@property(nonatomic, readonly) NSString *systemVersion;
@property(nonatomic, readonly) UIUserInterfaceIdiom userInterfaceIdiom API_AVAILABLE(ios(3.2));
@end

@interface UIView : UIResponder
@end

API_DEPRECATED("", ios(2.0, 12.0))
@interface UIWebView : UIView
- (nullable NSString *)stringByEvaluatingJavaScriptFromString:(NSString *)script;
@end

NS_ASSUME_NONNULL_END
