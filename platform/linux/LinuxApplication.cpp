#include "platform/linux/LinuxApplication.h"

#include "platform/linux/CallbackBoundary.h"

namespace kx {

void LinuxApplication::didEnterBackground() {
  enter(true);
}

void LinuxApplication::willEnterForeground() {
  enter(false);
}

void LinuxApplication::enter(bool background) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (background == inBackground_) return;
    notifications_.push_back(background ? UIApplicationDidEnterBackgroundNotification
                                        : UIApplicationWillEnterForegroundNotification);
    inBackground_ = background;
  }
  if (dispatch_.isMainThread()) {
    postTransitions();  // those too that other threads have announced before
  } else {
    dispatch_.mainQueue().async([application = strong(*this)] { application->postTransitions(); });
  }
}

void LinuxApplication::postTransitions() {
  while (true) {
    const char *notification = nullptr;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (notifications_.empty()) return;
      notification = notifications_.front();
      notifications_.pop_front();
    }
    // An observer that throws keeps no later transition back.
    runAtBoundary([this, notification] { center_.postNotificationName(notification, shared_from_this()); });
  }
}

BackgroundTaskIdentifier LinuxApplication::beginBackgroundTaskWithName(
    const std::string & /*name*/, std::function<void()> /*expirationHandler*/) {
  return ++lastBackgroundTask_;
}

void LinuxApplication::endBackgroundTask(BackgroundTaskIdentifier /*identifier*/) {}

}  // namespace kx
