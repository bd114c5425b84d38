#pragma once

#include <gio/gio.h>

#include <functional>

namespace kx {

/// Watches a name on the bus while it exists. To be used on the main thread only.
class BusNameWatch {
 public:
  /// Somebody owns the name: `owner` is the unique name. Comes again, without the other one in between, when
  /// one owner follows the other at once.
  using Appeared = std::function<void(const char *owner)>;
  /// Nobody does (any more), or the connection is gone.
  using Vanished = std::function<void()>;

  /// One of the two is called soon, and from then on at each change; on the main thread, never from within a
  /// call. With `G_BUS_NAME_WATCHER_FLAGS_AUTO_START` the bus starts the service, once.
  BusNameWatch(GDBusConnection *connection, const char *name, GBusNameWatcherFlags flags,
               GMainContext *mainContext, Appeared appeared, Vanished vanished);
  /// Neither is called any more.
  ~BusNameWatch() { g_bus_unwatch_name(number_); }
  BusNameWatch(const BusNameWatch &) = delete;
  BusNameWatch &operator=(const BusNameWatch &) = delete;

 private:
  guint number_ = 0;
};

}  // namespace kx
