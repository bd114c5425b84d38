#import "AppDelegate.h"

#import <AppTrackingTransparency/AppTrackingTransparency.h>
#import <CoreLocation/CoreLocation.h>
#import <KXPublisher/KXPublisher.h>

#ifndef KX_API_TOKEN
#error KX_API_TOKEN and KX_HOSTNAME say which service to report to
#endif

@interface AppDelegate ()

@property(nonatomic, strong) CLLocationManager *locationManager;
@property(nonatomic, strong) UITextView *textView;
@property(nonatomic, strong) KXPublisher *publisher;

@end

@implementation AppDelegate

- (BOOL)application:(UIApplication *)application
    didFinishLaunchingWithOptions:(NSDictionary<NSString *, id> *)launchOptions {
  UIViewController *controller = [[UIViewController alloc] init];
  self.textView = [[UITextView alloc] initWithFrame:controller.view.bounds];
  self.textView.editable = NO;
  controller.view = self.textView;
  self.window = [[UIWindow alloc] initWithFrame:UIScreen.mainScreen.bounds];
  self.window.rootViewController = controller;
  [self.window makeKeyAndVisible];
  return YES;
}

// The system shows the question only while the app is active. It comes before the publisher, which reads the
// advertising identifier once.
- (void)applicationDidBecomeActive:(UIApplication *)application {
  if (self.publisher != nil) {
    [self showMessage];
  } else if (@available(iOS 14, *)) {
    [ATTrackingManager requestTrackingAuthorizationWithCompletionHandler:^(
                           __unused ATTrackingManagerAuthorizationStatus status) {
      dispatch_async(dispatch_get_main_queue(), ^{
        [self startPublisher];
      });
    }];
  } else {
    [self startPublisher];
  }
}

- (void)startPublisher {
  if (self.publisher != nil) return;
  self.publisher = [KXPublisher sharedInstanceWithApiToken:@KX_API_TOKEN hostname:@KX_HOSTNAME];
  [self.publisher enableDebugging];

  // The answer may come at any time: the publisher hears of it from the system.
  self.locationManager = [[CLLocationManager alloc] init];
  [self.locationManager requestWhenInUseAuthorization];
  [self showMessage];
}

// Every ten seconds while the app is active, what a report would say now.
- (void)showMessage {
  [NSObject cancelPreviousPerformRequestsWithTarget:self selector:@selector(showMessage) object:nil];
  if (UIApplication.sharedApplication.applicationState != UIApplicationStateActive) return;
  self.textView.text = self.publisher.description;
  [self performSelector:@selector(showMessage) withObject:nil afterDelay:10];
}

@end
