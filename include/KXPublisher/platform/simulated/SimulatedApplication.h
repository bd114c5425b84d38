#pragma once

#include <string>
#include <vector>

#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/NotificationCenter.h"

namespace kx {

/// The host application, as a test plays it.
class KX_EXPORT SimulatedApplication : public Application {
 public:
  struct BackgroundTask {
    std::string name;
    std::function<void()> expirationHandler;
    bool ended = false;
  };

  SimulatedApplication(NotificationCenter &center, Dispatch &dispatch)
      : center_(center), dispatch_(dispatch) {}

  /// What `backgroundRefreshStatus` answers.
  BackgroundRefreshStatus refreshStatus = BackgroundRefreshStatus::available;
  /// Every background task that was begun; the first one has the identifier 1.
  std::vector<BackgroundTask> backgroundTasks{};
  /// Every identifier that `endBackgroundTask:` was called with, `UIBackgroundTaskInvalid` included.
  std::vector<BackgroundTaskIdentifier> endedIdentifiers{};

  /// Announces that the application has entered the background. Like the next one it is called by the test,
  /// or in a task of the main queue; the observers have run when it returns.
  void enterBackground();
  /// Announces that it is about to enter the foreground.
  void enterForeground();
  /// The system's patience ends: calls the expiration handler of every background task that has not ended.
  void expireBackgroundTasks();

  BackgroundRefreshStatus backgroundRefreshStatus() override;
  BackgroundTaskIdentifier beginBackgroundTaskWithName(const std::string &name,
                                                       std::function<void()> expirationHandler) override;
  void endBackgroundTask(BackgroundTaskIdentifier identifier) override;

 private:
  NotificationCenter &center_;
  Dispatch &dispatch_;
};

}  // namespace kx
