#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <vector>

#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/threads/LinuxRunLoop.h"

namespace kx {

/// The system message bus, on which the device's services are. One connection of the library's own, which all
/// adapters share: what the host does with its connections stays its own, and a bus that goes away does not
/// end the host. It is opened without waiting, on the main thread's loop, when somebody first wants it. Where
/// there is no bus, or it went away, another attempt follows after a while.
///
/// While it is open GLib has a thread waiting on it, which wakes for messages only.
class SystemBus : public Object {
 public:
  /// Called on the main thread: with the connection when it has been opened, and with null when it has been
  /// lost, by turns. The connection may be kept; its signals arrive on the main thread.
  using Observer = std::function<void(GDBusConnection *connection)>;

  /// After a failure or a loss the next attempt begins as long after as from one report to the next.
  explicit SystemBus(std::shared_ptr<LinuxRunLoop> mainRunLoop);
  SystemBus(std::shared_ptr<LinuxRunLoop> mainRunLoop, unsigned int secondsBetweenAttempts);
  ~SystemBus() override;

  /// Has `observer` told from now on, beginning with the connection that is open. Returns at once; from any
  /// thread. Observers stay as long as the bus does.
  void observe(Observer observer);

 private:
  void open();
  void use(GLibPointer<GDBusConnection> connection);
  void tellObservers();
  void tryAgainLater();

  static void whenOpened(GObject *source, GAsyncResult *result, gpointer data);
  static void whenClosed(GDBusConnection *connection, gboolean byPeer, GError *error, gpointer data);

  // All of it is used on the main thread only.
  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const unsigned int secondsBetweenAttempts_;
  std::vector<Observer> observers_;
  GLibPointer<GDBusConnection> connection_;
  gulong closedHandler_ = 0;
};

}  // namespace kx
