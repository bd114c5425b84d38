#include "platform/linux/bus/BusNameWatch.h"

#include <utility>

#include "platform/linux/bus/MainContextScope.h"
#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

namespace {

struct Watcher {
  BusNameWatch::Appeared appeared;
  BusNameWatch::Vanished vanished;
};

}  // namespace

BusNameWatch::BusNameWatch(GDBusConnection *connection, const char *name, GBusNameWatcherFlags flags,
                           GMainContext *mainContext, Appeared appeared, Vanished vanished) {
  const MainContextScope scope(mainContext);
  number_ = g_bus_watch_name_on_connection(
      connection, name, flags,
      [](GDBusConnection *, const gchar *, const gchar *owner, gpointer data) {
        runAtBoundary([&] { static_cast<Watcher *>(data)->appeared(owner); });
      },
      [](GDBusConnection *, const gchar *, gpointer data) {
        runAtBoundary([&] { static_cast<Watcher *>(data)->vanished(); });
      },
      new Watcher{std::move(appeared), std::move(vanished)},
      [](gpointer data) { delete static_cast<Watcher *>(data); });
}

}  // namespace kx
