#pragma once

#include <gio/gio.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/threads/LinuxRunLoop.h"
#include "platform/linux/threads/OneShotTimer.h"

namespace kx {

/// A message bus. One connection of the library's own, which all adapters share: what the host does with its
/// connections stays its own, and a bus that goes away does not end the host. It is opened by a worker, when
/// somebody first wants it, and used on the main thread. Where there is no bus, or it went away, another
/// attempt follows after a while.
///
/// While it is open GLib has a thread waiting on it, which wakes for messages only.
class MessageBus : public Object {
 public:
  /// Called on the main thread: with the connection when it has been opened, and with null when it has been
  /// lost, by turns. The connection may be kept. What it tells arrives on the main thread, whatever context
  /// the host has made that thread's default, by way of `BusNameWatch` and `BusPeer`.
  using Observer = std::function<void(GDBusConnection *connection)>;

  /// `type`: the system's or the session's; its address is read from the environment here and now, on the
  /// thread that calls the library. A session without one has no bus, ever. After a failure or a loss the
  /// next attempt begins as long after as from one report to the next.
  MessageBus(GBusType type, std::shared_ptr<LinuxRunLoop> mainRunLoop,
             unsigned int secondsBetweenAttempts = 600);
  ~MessageBus() override;

  /// Has `observer` told from now on, beginning with the connection that is open. Returns at once; from any
  /// thread. Observers stay as long as the bus does.
  void observe(Observer observer);

 private:
  void open();
  /// On a worker: GLib's own preparations for its first connection take as long as all else that the library
  /// does on the main thread in the beginning.
  void connect(const std::string &address);
  void use(GLibPointer<GDBusConnection> connection);
  void tellObservers();
  void tryAgainLater();

  static void whenClosed(GDBusConnection *connection, gboolean byPeer, GError *error, gpointer data);

  // All of it is used on the main thread only, but for the first two.
  const std::optional<std::string> address_;  ///< absent where there is no such bus
  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const std::chrono::seconds betweenAttempts_;
  std::vector<Observer> observers_;
  GLibPointer<GDBusConnection> connection_;
  gulong closedHandler_ = 0;
  OneShotTimer nextAttempt_;
};

}  // namespace kx
