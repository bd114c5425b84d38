#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "platform/Application.h"
#include "platform/DispatchQueue.h"
#include "platform/NotificationCenter.h"

namespace kx {

/// The host application. It tells of its own life by `LinuxHost`; starts in the foreground.
class KX_EXPORT LinuxApplication : public Application {
 public:
  LinuxApplication(NotificationCenter &center, Dispatch &dispatch,
                   BackgroundRefreshStatus backgroundRefreshStatus)
      : center_(center), dispatch_(dispatch), backgroundRefreshStatus_(backgroundRefreshStatus) {}

  /// Notifies the observers that the application has entered the background, once until it returns: before
  /// this call returns when it is made on the main thread, and soon otherwise. From any thread; the
  /// notifications are posted in the order of the calls.
  void didEnterBackground();
  /// The same for its return to the foreground.
  void willEnterForeground();

  BackgroundRefreshStatus backgroundRefreshStatus() override { return backgroundRefreshStatus_; }
  /// Always granted: Linux lets a process in the background run on, so no task expires and the handler is
  /// never called.
  BackgroundTaskIdentifier beginBackgroundTaskWithName(const std::string &name,
                                                       std::function<void()> expirationHandler) override;
  void endBackgroundTask(BackgroundTaskIdentifier identifier) override;

 private:
  void enter(bool background);
  void postTransitions();

  NotificationCenter &center_;
  Dispatch &dispatch_;
  const BackgroundRefreshStatus backgroundRefreshStatus_;
  std::atomic<BackgroundTaskIdentifier> lastBackgroundTask_{UIBackgroundTaskInvalid};
  std::mutex mutex_;
  bool inBackground_ = false;               ///< after the transitions that wait
  std::deque<const char *> notifications_;  ///< the transitions that have not been posted yet
};

}  // namespace kx
