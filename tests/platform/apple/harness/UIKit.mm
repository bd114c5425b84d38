#import <UIKit/UIKit.h>

#include <map>
#include <mutex>

#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

using kx::standin::note;

NSString *const UIApplicationDidEnterBackgroundNotification = @"UIApplicationDidEnterBackgroundNotification";
NSString *const UIApplicationWillEnterForegroundNotification =
    @"UIApplicationWillEnterForegroundNotification";
NSString *const UITrackingRunLoopMode = @"UITrackingRunLoopMode";
const UIBackgroundTaskIdentifier UIBackgroundTaskInvalid = 4711;  // whatever it is there

namespace kx::standin {

namespace {

struct BackgroundTasks {
  std::mutex mutex;
  std::vector<std::string> begun;
  std::vector<UIBackgroundTaskIdentifier> ended;
  std::map<UIBackgroundTaskIdentifier, void (^)(void)> running;
};

BackgroundTasks &backgroundTasks() {
  static auto *const tasks = new BackgroundTasks;
  return *tasks;
}

void requireMainThread(const char *operation) {
  if ([NSThread isMainThread]) return;
  [NSException raise:NSInternalInconsistencyException format:@"%s off the main thread", operation];
}

}  // namespace

Device &device() {
  static auto *const device = new Device;
  return *device;
}

WebEngine &webEngine() {
  static auto *const engine = new WebEngine;
  return *engine;
}

Application &application() {
  static auto *const application = new Application;
  return *application;
}

void enterBackground() {
  [[NSNotificationCenter defaultCenter] postNotificationName:UIApplicationDidEnterBackgroundNotification
                                                      object:[UIApplication sharedApplication]];
}

void enterForeground() {
  [[NSNotificationCenter defaultCenter] postNotificationName:UIApplicationWillEnterForegroundNotification
                                                      object:[UIApplication sharedApplication]];
}

std::vector<std::string> begunBackgroundTasks() {
  const std::lock_guard<std::mutex> lock(backgroundTasks().mutex);
  return backgroundTasks().begun;
}

std::vector<UIBackgroundTaskIdentifier> endedBackgroundTasks() {
  const std::lock_guard<std::mutex> lock(backgroundTasks().mutex);
  return backgroundTasks().ended;
}

std::vector<UIBackgroundTaskIdentifier> runningBackgroundTasks() {
  const std::lock_guard<std::mutex> lock(backgroundTasks().mutex);
  std::vector<UIBackgroundTaskIdentifier> identifiers;
  for (const auto &task : backgroundTasks().running) identifiers.push_back(task.first);
  return identifiers;
}

void expireBackgroundTasks() {
  std::map<UIBackgroundTaskIdentifier, void (^)(void)> running;
  {
    const std::lock_guard<std::mutex> lock(backgroundTasks().mutex);
    running = backgroundTasks().running;
  }
  for (const auto &task : running) {
    if (task.second != nil) task.second();
  }
}

}  // namespace kx::standin

@implementation UIResponder
@end

@implementation UIApplication

+ (UIApplication *)sharedApplication {
  static UIApplication *const application = [UIApplication new];
  return application;
}

- (UIBackgroundRefreshStatus)backgroundRefreshStatus {
  note(__func__);
  kx::standin::requireMainThread(__func__);
  return kx::standin::application().backgroundRefreshStatus;
}

- (UIBackgroundTaskIdentifier)beginBackgroundTaskWithName:(NSString *)taskName
                                        expirationHandler:(void (^)(void))handler {
  note(__func__);
  auto &tasks = kx::standin::backgroundTasks();
  const std::lock_guard<std::mutex> lock(tasks.mutex);
  if (!kx::standin::application().grantsBackgroundTasks) return UIBackgroundTaskInvalid;
  const UIBackgroundTaskIdentifier identifier = kx::standin::firstBackgroundTask + tasks.begun.size();
  tasks.begun.emplace_back(taskName.UTF8String);
  tasks.running[identifier] = [handler copy];
  return identifier;
}

- (void)endBackgroundTask:(UIBackgroundTaskIdentifier)identifier {
  note(__func__);
  auto &tasks = kx::standin::backgroundTasks();
  decltype(tasks.running)::node_type ended;  // goes without the lock
  const std::lock_guard<std::mutex> lock(tasks.mutex);
  tasks.ended.push_back(identifier);
  ended = tasks.running.extract(identifier);
}

@end

@implementation UIDevice

+ (UIDevice *)currentDevice {
  note(__func__);
  static UIDevice *const device = [UIDevice new];
  return kx::standin::device().isPresent ? device : nil;
}

- (NSString *)model {
  note(__func__);
  return kx::standin::device().model;
}

- (NSString *)systemName {
  note(__func__);
  return kx::standin::device().systemName;
}

- (NSString *)systemVersion {
  note(__func__);
  return kx::standin::device().systemVersion;
}

- (UIUserInterfaceIdiom)userInterfaceIdiom {
  note(__func__);
  return kx::standin::device().userInterfaceIdiom;
}

@end

@implementation UIView
@end

@implementation UIWebView

- (instancetype)init {
  note(__func__);
  kx::standin::requireMainThread(__func__);
  if (!kx::standin::webEngine().makesViews) return nil;
  return [super init];
}

- (void)dealloc {
  note(__func__);
}

- (NSString *)stringByEvaluatingJavaScriptFromString:(NSString *)script {
  note(__func__);
  kx::standin::requireMainThread(__func__);
  return [script isEqualToString:@"navigator.userAgent"] ? kx::standin::webEngine().userAgent : @"";
}

@end
