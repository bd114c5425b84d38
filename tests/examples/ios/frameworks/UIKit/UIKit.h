#pragma once
#pragma clang system_header  // for #include_next

// What an app needs of UIKit and Foundation beyond what the library does.

#include_next <UIKit/UIKit.h>

NS_ASSUME_NONNULL_BEGIN

typedef struct CGRect {
  double x, y, width, height;
} CGRect;

FOUNDATION_EXPORT NSString *NSStringFromClass(Class aClass);

@interface NSObject (DelayedPerforming)
- (void)performSelector:(SEL)aSelector withObject:(nullable id)argument afterDelay:(NSTimeInterval)delay;
+ (void)cancelPreviousPerformRequestsWithTarget:(id)target
                                       selector:(SEL)aSelector
                                         object:(nullable id)argument;
@end

FOUNDATION_EXPORT int UIApplicationMain(int argc, char *_Nullable argv[_Nonnull],
                                        NSString *_Nullable principalClassName,
                                        NSString *_Nullable delegateClassName);

enum : NSInteger { UIApplicationStateActive = 0 };
typedef NSInteger UIApplicationState;

@interface UIApplication (State)
@property(nonatomic, readonly) UIApplicationState applicationState API_AVAILABLE(ios(4.0));
@end

@class UIWindow;

@protocol UIApplicationDelegate <NSObject>
@optional
@property(nonatomic, strong, nullable) UIWindow *window API_AVAILABLE(ios(5.0));
- (BOOL)application:(UIApplication *)application
    didFinishLaunchingWithOptions:(nullable NSDictionary<NSString *, id> *)launchOptions
    API_AVAILABLE(ios(3.0));
- (void)applicationDidBecomeActive:(UIApplication *)application API_DEPRECATED("", ios(2.0, 26.0));
@end

@interface UIScreen : NSObject
@property(class, nonatomic, readonly) UIScreen *mainScreen API_DEPRECATED("", ios(2.0, 26.0));
@property(nonatomic, readonly) CGRect bounds;
@end

@interface UIView (Geometry)
- (instancetype)initWithFrame:(CGRect)frame;
@property(nonatomic) CGRect bounds;
@end

@interface UIViewController : UIResponder
@property(nonatomic, strong, null_resettable) UIView *view;
@end

@interface UIWindow : UIView
@property(nonatomic, strong, nullable) UIViewController *rootViewController API_AVAILABLE(ios(4.0));
- (void)makeKeyAndVisible;
@end

@interface UITextView : UIView
@property(nonatomic, copy, null_resettable) NSString *text;
@property(nonatomic, getter=isEditable) BOOL editable;
@end

NS_ASSUME_NONNULL_END
