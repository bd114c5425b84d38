#pragma once

#include <functional>
#include <string>

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// The notifications that the shared application object sends, always on the main thread.
inline constexpr const char *UIApplicationDidEnterBackgroundNotification =
    "UIApplicationDidEnterBackgroundNotification";
inline constexpr const char *UIApplicationWillEnterForegroundNotification =
    "UIApplicationWillEnterForegroundNotification";

/// Whether the host may work in the background (UIBackgroundRefreshStatus).
enum class BackgroundRefreshStatus { restricted = 0, denied = 1, available = 2 };

/// A background task, as the application knows it (UIBackgroundTaskIdentifier).
using BackgroundTaskIdentifier = unsigned long;
inline constexpr BackgroundTaskIdentifier invalidBackgroundTask = 0;

/// The host application (the shared UIApplication object).
class KX_EXPORT Application : public Object {
 public:
  /// `backgroundRefreshStatus`. To be asked on the main thread.
  virtual BackgroundRefreshStatus backgroundRefreshStatus() = 0;

  /// `beginBackgroundTaskWithName:expirationHandler:`: asks the system to let the process go on for a while
  /// although it is in the background. If the time runs out first, `expirationHandler` is called on the main
  /// thread, once, and has to end the task. Returns `UIBackgroundTaskInvalid` when the system grants nothing.
  /// May be called from any thread.
  virtual BackgroundTaskIdentifier beginBackgroundTaskWithName(const std::string &name,
                                                               std::function<void()> expirationHandler) = 0;

  /// `endBackgroundTask:`: the task needs no more time. Harmless for a task that has ended, and for
  /// `UIBackgroundTaskInvalid`. May be called from any thread.
  virtual void endBackgroundTask(BackgroundTaskIdentifier identifier) = 0;
};

}  // namespace kx
