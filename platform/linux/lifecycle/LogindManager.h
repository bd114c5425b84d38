#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "KXPublisher/platform/foundation/Object.h"
#include "platform/linux/bus/GLibPointers.h"

namespace kx {

/// One run of logind: it announces that the system goes to sleep, and delays that for whoever holds a lock.
/// There is a new object for the next run, so no answer or announcement is ever mistaken for one of that.
///
/// Everything happens on the main thread, and nothing waits. What logind refuses, never answers or answers
/// with something else is as if there were no locks: it is no error, and nothing is tried again by itself.
class LogindManager : public Object {
 public:
  /// `PrepareForSleep`: true when the system is about to sleep, false when it is awake again.
  using Announcement = std::function<void(bool start)>;

  /// `owner` is logind's unique name on that connection. `applicationName` is shown to whoever asks who
  /// delays the sleep; valid UTF-8.
  LogindManager(GDBusConnection *connection, std::string owner, std::string applicationName,
                Announcement announcement);
  /// Gives up the lock.
  ~LogindManager() override;

  /// `Inhibit`: has the system's sleep delayed from some moment soon on, if logind grants that. Harmless when
  /// the lock is held or has been asked for already. logind grants none from when it announces sleep until
  /// the system is awake again.
  void takeLock();

  /// Lets the system sleep. Harmless when no lock is held.
  void giveUpLock();

  /// `InhibitDelayMaxUSec`: microseconds for which logind delays sleep at most; after that the system sleeps
  /// whoever holds a lock. As logind said when a lock was last asked for; its own default before.
  std::uint64_t longestDelay() const { return longestDelay_; }

 private:
  void keepLock(GVariant *answer, GUnixFDList *descriptors);

  static void whenPreparing(GDBusConnection *connection, const gchar *sender, const gchar *path,
                            const gchar *interface, const gchar *signal, GVariant *parameters, gpointer data);
  static void whenLocked(GObject *connection, GAsyncResult *result, gpointer data);
  static void whenTold(GObject *connection, GAsyncResult *result, gpointer data);

  const GLibPointer<GDBusConnection> connection_;
  const std::string owner_;
  const std::string applicationName_;
  const Announcement announcement_;
  guint subscription_ = 0;
  std::uint64_t longestDelay_;
  bool wantsLock_ = false;
  bool askedForLock_ = false;  ///< and not been answered yet
  int lock_ = -1;              ///< a descriptor; to close it is to give up the lock
};

}  // namespace kx
