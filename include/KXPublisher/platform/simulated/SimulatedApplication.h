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
      : center_(center), dispatch_(dispatch) {
    endedIdentifiers.reserve(1024);  // a system that is short of memory ends tasks all the same
  }

  /// What was announced last, and what the host has said through its own door.
  bool inBackground = false;
  bool hostIsInBackground = false;
  /// What `backgroundRefreshStatus` answers.
  BackgroundRefreshStatus refreshStatus = BackgroundRefreshStatus::available;
  /// The background tasks that were begun; the first one has the identifier 1. Of those that have ended, the
  /// latest 1000 are kept.
  std::vector<BackgroundTask> backgroundTasks{};
  /// The identifiers that `endBackgroundTask:` was called with, `UIBackgroundTaskInvalid` included; the
  /// latest 1000.
  std::vector<BackgroundTaskIdentifier> endedIdentifiers{};

  /// How many background tasks have not ended.
  std::size_t openBackgroundTasks() const;

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
  BackgroundTaskIdentifier forgotten_ = 0;  ///< identifiers of tasks that are no longer kept

  NotificationCenter &center_;
  Dispatch &dispatch_;
};

}  // namespace kx
