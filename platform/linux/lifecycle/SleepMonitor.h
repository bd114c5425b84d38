#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/lifecycle/LogindManager.h"
#include "platform/linux/threads/LinuxRunLoop.h"
#include "platform/linux/threads/OneShotTimer.h"

namespace kx {

/// Tells when the system goes to sleep and when it is awake again, and delays its sleep, as far as logind
/// does either. Where there is none the system counts as awake, and so it does when logind goes away.
///
/// Everything happens on the main thread, and nothing waits. There is a timer only between an announcement of
/// sleep and the end of its delay.
class SleepMonitor : public Object {
 public:
  /// Called on the main thread.
  struct Events {
    /// The system is about to sleep. It does not before this has returned, and then not before it is delayed
    /// no longer; if a lock is held, that is, and until the longest delay is over.
    std::function<void()> systemWillSleep;
    /// The system is awake again, or has not slept after all. Comes after each `systemWillSleep`.
    std::function<void()> systemDidWake;
    /// The system sleeps in a moment, delayed or not. Not called when it is not delayed any more.
    std::function<void()> delayRunsOut;
  };

  /// `applicationName` is valid UTF-8.
  SleepMonitor(std::shared_ptr<LinuxRunLoop> mainRunLoop, std::string applicationName, Events events);
  ~SleepMonitor() override;

  /// The bus to find logind on; null when there is none any more.
  void use(GDBusConnection *connection);

  /// Whether the system's sleep is to be delayed; it is until this is called. One lock at most is held for
  /// it, and it has to be held before sleep is announced: logind grants none later. So what is not delayed
  /// when sleep is announced, or no longer from some moment on, stays so until the system is awake.
  void setDelaysSleep(bool delays);

  /// How long after an announcement `delayRunsOut` comes, in milliseconds, when logind delays sleep by
  /// `longestDelay` microseconds. What is left of the delay is for the announcement's way to a main thread
  /// that was busy, for what the application does then, and for the lock's way back: a second, or half of a
  /// delay that is shorter than two.
  static unsigned int millisecondsUntilDelayRunsOut(std::uint64_t longestDelay);

 private:
  void meet(GDBusConnection *connection, const char *owner);
  void leave();
  void heed(bool sleepStarts);
  void startTimer();

  static void whenAppeared(GDBusConnection *connection, const gchar *name, const gchar *owner, gpointer data);
  static void whenVanished(GDBusConnection *connection, const gchar *name, gpointer data);

  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const std::string applicationName_;
  const Events events_;
  guint nameWatch_ = 0;
  std::shared_ptr<LogindManager> logind_;  ///< null while it is not there
  bool delaysSleep_ = true;
  bool isPreparing_ = false;  ///< for sleep: from the announcement until the system is awake
  OneShotTimer timer_;
};

}  // namespace kx
