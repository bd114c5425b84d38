#include "platform/linux/bus/MessageBus.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <future>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/linux/bus/Weakly.h"
#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/facts/Environment.h"
#include "platform/linux/threads/LinuxWorkerPool.h"

namespace kx {

namespace {

/// Has GLib prepare its sockets. It has the whole process ignore SIGPIPE then, once, which it can do without
/// on Linux; what becomes of that signal stays the host's choice. On the main thread, where the host does not
/// make that choice at the same time.
void prepareSockets() {
  struct sigaction chosen {};
  sigaction(SIGPIPE, nullptr, &chosen);
  g_type_class_ref(G_TYPE_SOCKET);
  sigaction(SIGPIPE, &chosen, nullptr);
}

/// The same, called on a worker, which waits for it and does all of it that has nothing to do with signals.
void prepareSocketsOn(LinuxRunLoop &mainRunLoop) {
  for (const GType type : {G_TYPE_SOCKET, G_TYPE_INET_ADDRESS}) g_type_ensure(type);
  for (const GType type : {G_TYPE_OBJECT, G_TYPE_SOCKET_FAMILY, G_TYPE_SOCKET_TYPE, G_TYPE_SOCKET_PROTOCOL}) {
    g_type_class_ref(type);
  }
  const auto prepared = std::make_shared<std::promise<void>>();
  mainRunLoop.perform([prepared] {
    prepareSockets();
    prepared->set_value();
  });
  prepared->get_future().wait();
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

/// Whether nothing is where that address leads. GLib would notice, too, but only after it has prepared its
/// first connection: 40 KiB of types and tables, which a host without a bus then does not have. An address
/// with more to it than a path is left to GLib.
bool leadsNowhere(const std::string &address) {
  static constexpr std::string_view beforePath = "unix:path=";
  if (address.compare(0, beforePath.size(), beforePath) != 0) return false;
  const std::string path = address.substr(beforePath.size());
  return path.find_first_of(",;%") == std::string::npos && access(path.c_str(), F_OK) != 0;
}

/// Absent when there is no such bus: GLib itself would start one for a session that has none, and wait for
/// it.
std::optional<std::string> addressOf(GBusType type) {
  const bool isSessions = type == G_BUS_TYPE_SESSION;
  const char *const name = isSessions ? "DBUS_SESSION_BUS_ADDRESS" : "DBUS_SYSTEM_BUS_ADDRESS";
  auto address = Environment::ofProcess({name}).value(name);
  if (!address && !isSessions) address = "unix:path=/var/run/dbus/system_bus_socket";  // where D-Bus has it
  return address;
}

}  // namespace

MessageBus::MessageBus(GBusType type, std::shared_ptr<LinuxRunLoop> mainRunLoop,
                       unsigned int secondsBetweenAttempts)
    : address_(addressOf(type)),
      mainRunLoop_(std::move(mainRunLoop)),
      betweenAttempts_(secondsBetweenAttempts),
      nextAttempt_(mainRunLoop_->context()) {}

MessageBus::~MessageBus() {
  if (connection_ != nullptr) g_signal_handler_disconnect(connection_.get(), closedHandler_);
}

void MessageBus::observe(Observer observer) {
  mainRunLoop_->perform([bus = strong(*this), observer = std::move(observer)] {
    bus->observers_.push_back(observer);
    if (bus->connection_ != nullptr) {
      observer(bus->connection_.get());
    } else if (bus->observers_.size() == 1) {
      bus->open();
    }
  });
}

void MessageBus::open() {
  if (!address_) return;
  LinuxWorkerPool::shared().submit(DispatchQueuePriority::standard,
                                   [bus = strong(*this), address = *address_] { bus->connect(address); });
}

void MessageBus::connect(const std::string &address) {
  GLibPointer<GDBusConnection> opened;
  if (!leadsNowhere(address) && hasFreeDescriptors()) {
    if (g_type_class_peek(G_TYPE_SOCKET) == nullptr) prepareSocketsOn(*mainRunLoop_);
    opened.reset(g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr));
  }
  const std::shared_ptr<GDBusConnection> connection(std::move(opened));
  mainRunLoop_->perform([bus = strong(*this), connection] {
    if (connection == nullptr || g_dbus_connection_is_closed(connection.get()) != FALSE) {
      bus->tryAgainLater();
    } else {
      bus->use(retained(connection.get()));
    }
  });
}

void MessageBus::use(GLibPointer<GDBusConnection> connection) {
  connection_ = std::move(connection);
  closedHandler_ = g_signal_connect(connection_.get(), "closed", G_CALLBACK(&whenClosed), this);
  tellObservers();
}

void MessageBus::whenClosed(GDBusConnection *connection, gboolean /*byPeer*/, GError * /*error*/,
                            gpointer data) {
  const auto bus = strong(*static_cast<MessageBus *>(data));
  if (bus == nullptr) return;
  runAtBoundary([&] {
    g_signal_handler_disconnect(connection, bus->closedHandler_);
    bus->connection_.reset();
    bus->tellObservers();
    bus->tryAgainLater();
  });
}

void MessageBus::tellObservers() {
  const auto observers = observers_;  // one of them may bring another
  for (const Observer &observer : observers) {
    runAtBoundary([&] { observer(connection_.get()); });
  }
}

void MessageBus::tryAgainLater() {
  nextAttempt_.schedule(betweenAttempts_, weakly(*this, &MessageBus::open));
}

}  // namespace kx
