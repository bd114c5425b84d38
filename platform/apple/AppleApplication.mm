#include "platform/apple/AppleApplication.h"

#import <UIKit/UIKit.h>

#include <utility>

#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleText.h"

namespace kx {

BackgroundRefreshStatus AppleApplication::backgroundRefreshStatus() {
  return static_cast<BackgroundRefreshStatus>([UIApplication sharedApplication].backgroundRefreshStatus);
}

BackgroundTaskIdentifier AppleApplication::beginBackgroundTaskWithName(
    const std::string &name, std::function<void()> expirationHandler) {
  const UIBackgroundTaskIdentifier task =
      [[UIApplication sharedApplication] beginBackgroundTaskWithName:stringOf(name)
                                                   expirationHandler:^{
                                                     runAtBoundary(expirationHandler);
                                                   }];
  return task == ::UIBackgroundTaskInvalid ? invalidBackgroundTask : task;
}

void AppleApplication::endBackgroundTask(BackgroundTaskIdentifier identifier) {
  const UIBackgroundTaskIdentifier task = identifier == invalidBackgroundTask
                                              ? ::UIBackgroundTaskInvalid
                                              : static_cast<UIBackgroundTaskIdentifier>(identifier);
  [[UIApplication sharedApplication] endBackgroundTask:task];
}

}  // namespace kx
