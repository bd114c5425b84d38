#include "platform/linux/bus/SystemBus.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <mutex>
#include <utility>

#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

namespace {

constexpr unsigned int timeBetweenAttempts = 600;  // seconds

/// Has GLib prepare its sockets. It has the whole process ignore SIGPIPE then, once, which it can do without
/// on Linux; what becomes of that signal stays the host's choice.
void prepareSockets() {
  struct sigaction chosen {};
  sigaction(SIGPIPE, nullptr, &chosen);
  g_type_class_ref(G_TYPE_SOCKET);
  sigaction(SIGPIPE, &chosen, nullptr);
}

/// Whether as many files can be opened as GLib opens for a connection: it ends the process where one of them
/// cannot be. More than it takes, since other threads open some meanwhile.
bool hasFreeDescriptors() {
  std::array<int, 16> opened{};
  std::size_t count = 0;
  while (count < opened.size() && (opened[count] = eventfd(0, EFD_CLOEXEC)) >= 0) ++count;
  const bool enough = count == opened.size();
  while (count > 0) close(opened[--count]);
  return enough;
}

}  // namespace

SystemBus::SystemBus(std::shared_ptr<LinuxRunLoop> mainRunLoop)
    : SystemBus(std::move(mainRunLoop), timeBetweenAttempts) {}

SystemBus::SystemBus(std::shared_ptr<LinuxRunLoop> mainRunLoop, unsigned int secondsBetweenAttempts)
    : mainRunLoop_(std::move(mainRunLoop)), secondsBetweenAttempts_(secondsBetweenAttempts) {}

SystemBus::~SystemBus() {
  if (connection_ != nullptr) g_signal_handler_disconnect(connection_.get(), closedHandler_);
}

void SystemBus::observe(Observer observer) {
  mainRunLoop_->perform([bus = strong(*this), observer = std::move(observer)] {
    bus->observers_.push_back(observer);
    if (bus->connection_ != nullptr) {
      observer(bus->connection_.get());
    } else if (bus->observers_.size() == 1) {
      bus->open();
    }
  });
}

// What is under way holds a reference to the bus: `data` of the callbacks below is a shared pointer on the
// heap.

void SystemBus::open() {
  if (!hasFreeDescriptors()) return tryAgainLater();
  static std::once_flag prepared;
  std::call_once(prepared, &prepareSockets);
  const GLibPointer<gchar> address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
  g_dbus_connection_new_for_address(
      address.get(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &whenOpened, new std::shared_ptr<SystemBus>(strong(*this)));
}

void SystemBus::whenOpened(GObject * /*source*/, GAsyncResult *result, gpointer data) {
  const std::unique_ptr<std::shared_ptr<SystemBus>> bus(static_cast<std::shared_ptr<SystemBus> *>(data));
  GLibPointer<GDBusConnection> connection(g_dbus_connection_new_for_address_finish(result, nullptr));
  runAtBoundary([&] {
    if (connection == nullptr || g_dbus_connection_is_closed(connection.get())) {
      (*bus)->tryAgainLater();
    } else {
      (*bus)->use(std::move(connection));
    }
  });
}

void SystemBus::use(GLibPointer<GDBusConnection> connection) {
  connection_ = std::move(connection);
  closedHandler_ = g_signal_connect(connection_.get(), "closed", G_CALLBACK(&whenClosed), this);
  tellObservers();
}

void SystemBus::whenClosed(GDBusConnection *connection, gboolean /*byPeer*/, GError * /*error*/,
                           gpointer data) {
  const auto bus = strong(*static_cast<SystemBus *>(data));
  if (bus == nullptr) return;
  runAtBoundary([&] {
    g_signal_handler_disconnect(connection, bus->closedHandler_);
    bus->connection_.reset();
    bus->tellObservers();
    bus->tryAgainLater();
  });
}

void SystemBus::tellObservers() {
  const auto observers = observers_;  // one of them may bring another
  for (const Observer &observer : observers) {
    runAtBoundary([&] { observer(connection_.get()); });
  }
}

void SystemBus::tryAgainLater() {
  GSource *const source = g_timeout_source_new_seconds(secondsBetweenAttempts_);
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        runAtBoundary([&] { (*static_cast<std::shared_ptr<SystemBus> *>(data))->open(); });
        return G_SOURCE_REMOVE;
      },
      new std::shared_ptr<SystemBus>(strong(*this)),
      [](gpointer data) { delete static_cast<std::shared_ptr<SystemBus> *>(data); });
  g_source_attach(source, mainRunLoop_->context());
  g_source_unref(source);
}

}  // namespace kx
