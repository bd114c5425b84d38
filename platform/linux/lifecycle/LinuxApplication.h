#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/NotificationCenter.h"
#include "platform/linux/threads/LinuxRunLoop.h"

namespace kx {

class SleepMonitor;
class SystemBus;

/// The host application. It is in the foreground when the host says so, by `LinuxHost`, and the system is
/// awake; it starts there.
///
/// The observers are notified once a transition, whatever has brought it about, in the order in which the
/// transitions came: before a call on the main thread returns, and soon otherwise.
class LinuxApplication : public Application {
 public:
  LinuxApplication(NotificationCenter &center, Dispatch &dispatch,
                   BackgroundRefreshStatus backgroundRefreshStatus);
  ~LinuxApplication() override;

  /// Has the system's sleep count from now on: it brings the application into the background, and background
  /// tasks delay it. To be called once, before the application is used. `applicationName` is the name by
  /// which the system knows who delays its sleep, the executable's if absent. Returns at once; without a bus
  /// or logind the system stays awake.
  void followSleep(SystemBus &bus, std::shared_ptr<LinuxRunLoop> mainRunLoop,
                   const std::optional<std::string> &applicationName);

  /// The host has entered the background. From any thread, like the next one.
  void didEnterBackground();
  /// The host is about to return to the foreground.
  void willEnterForeground();

  BackgroundRefreshStatus backgroundRefreshStatus() override { return backgroundRefreshStatus_; }

  /// Linux lets a process in the background run on: only the system's sleep stops it. So a task delays that,
  /// and expires just before the system sleeps in spite of it; it has ended then, whatever its handler does.
  ///
  /// Granted while the system is awake, and after it has announced its sleep as long as that is delayed:
  /// while the observers are notified, and while another task runs. Later ones would delay nothing.
  BackgroundTaskIdentifier beginBackgroundTaskWithName(const std::string &name,
                                                       std::function<void()> expirationHandler) override;
  void endBackgroundTask(BackgroundTaskIdentifier identifier) override;

  /// Says that something is on its way, until the last copy of what is returned is gone: a background task
  /// has ended when a report is handed over, and the report is to be out before the system sleeps. Delays
  /// sleep as a task does, but expires silently. From any thread.
  std::shared_ptr<void> delaySleep();

 private:
  class SleepDelay;

  void changeSleepDelays(int by) noexcept;
  void systemWillSleep();
  void systemDidWake();
  void expireBackgroundTasks();

  /// Notes the transition that it is now time for, if any. With the lock held.
  void noteTransition();
  void postTransitionsSoon();
  void postTransitions();
  const char *nextTransition();
  /// Has the sleep delayed while there is a reason for it, and lets the system sleep otherwise. On the main
  /// thread.
  void updateSleepDelay();
  void updateSleepDelaySoon();

  NotificationCenter &center_;
  Dispatch &dispatch_;
  const BackgroundRefreshStatus backgroundRefreshStatus_;
  std::shared_ptr<SleepMonitor> sleepMonitor_;  ///< null where the system's sleep does not count

  std::atomic<bool> postsSoon_{false};  ///< the main thread is going to post transitions
  std::mutex mutex_;                    ///< guards what follows
  bool hostIsInBackground_ = false;
  bool systemSleeps_ = false;             ///< or is about to
  bool canDelaySleep_ = true;             ///< false once an announced sleep is delayed no longer
  bool isInBackground_ = false;           ///< after the transitions that wait
  std::deque<const char *> transitions_;  ///< the notifications that have not been posted yet
  BackgroundTaskIdentifier lastBackgroundTask_ = invalidBackgroundTask;
  std::map<BackgroundTaskIdentifier, std::function<void()>> backgroundTasks_;  ///< their expiration handlers
  int sleepDelays_ = 0;                                                        ///< how many there are
};

}  // namespace kx
