#include "platform/linux/telephony/ModemManagerClient.h"

#include <utility>

#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

namespace {

constexpr const char *serviceName = "org.freedesktop.ModemManager1";
constexpr const char *objectManagerPath = "/org/freedesktop/ModemManager1";
constexpr const char *objectManagerInterface = "org.freedesktop.DBus.ObjectManager";
constexpr const char *propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char *modemInterface = "org.freedesktop.ModemManager1.Modem";
constexpr const char *simInterface = "org.freedesktop.ModemManager1.Sim";

}  // namespace

ModemManagerClient::ModemManagerClient(std::shared_ptr<LinuxRunLoop> mainRunLoop, Observer observer,
                                       Intervals intervals)
    : mainRunLoop_(std::move(mainRunLoop)), observer_(std::move(observer)), intervals_(intervals) {}

ModemManagerClient::~ModemManagerClient() {
  disconnect();
  if (nameWatch_ != 0) g_bus_unwatch_name(nameWatch_);
}

gpointer ModemManagerClient::newReference() {
  return new std::weak_ptr<ModemManagerClient>(strong(*this));
}

void ModemManagerClient::releaseReference(gpointer data) {
  delete static_cast<std::weak_ptr<ModemManagerClient> *>(data);
}

template <class Work>
void ModemManagerClient::withReferred(gpointer data, Work work) {
  runAtBoundary([&] {
    const auto client = static_cast<std::weak_ptr<ModemManagerClient> *>(data)->lock();
    if (client != nullptr) work(*client);
  });
}

// ---- The service comes and goes

void ModemManagerClient::use(GDBusConnection *connection) {
  if (nameWatch_ != 0) g_bus_unwatch_name(std::exchange(nameWatch_, 0));
  leave();
  connection_ = retained(connection);
  if (connection == nullptr) return;
  nameWatch_ =
      g_bus_watch_name_on_connection(connection, serviceName, G_BUS_NAME_WATCHER_FLAGS_NONE, &whenAppeared,
                                     &whenVanished, newReference(), &releaseReference);
}

void ModemManagerClient::whenAppeared(GDBusConnection * /*connection*/, const gchar * /*name*/,
                                      const gchar *owner, gpointer data) {
  withReferred(data, [owner](ModemManagerClient &client) { client.meet(owner); });
}

void ModemManagerClient::whenVanished(GDBusConnection * /*connection*/, const gchar * /*name*/,
                                      gpointer data) {
  withReferred(data, [](ModemManagerClient &client) { client.leave(); });
}

void ModemManagerClient::meet(const char *owner) {
  leave();
  owner_ = owner;
  // Subscribed first, so that nothing changes unnoticed between the reading and the subscriptions. The SIM's
  // object is none of those that the object manager manages.
  subscribe(propertiesInterface, "PropertiesChanged", nullptr, modemInterface, &whenPropertiesChanged);
  subscribe(propertiesInterface, "PropertiesChanged", nullptr, simInterface, &whenPropertiesChanged);
  subscribe(objectManagerInterface, "InterfacesAdded", objectManagerPath, nullptr, &whenObjectsChanged);
  subscribe(objectManagerInterface, "InterfacesRemoved", objectManagerPath, nullptr, &whenObjectsChanged);
  read();
}

void ModemManagerClient::subscribe(const char *interface, const char *member, const char *path,
                                   const char *firstArgument, GDBusSignalCallback callback) {
  subscriptions_.push_back(g_dbus_connection_signal_subscribe(
      connection_.get(), owner_.c_str(), interface, member, path, firstArgument, G_DBUS_SIGNAL_FLAGS_NONE,
      callback, newReference(), &releaseReference));
}

void ModemManagerClient::leave() {
  if (owner_.empty()) return;
  disconnect();
  observer_(Subscription());
}

void ModemManagerClient::disconnect() {
  for (const guint subscription : std::exchange(subscriptions_, {})) {
    g_dbus_connection_signal_unsubscribe(connection_.get(), subscription);
  }
  if (timer_ != nullptr) g_source_destroy(std::exchange(timer_, nullptr));
  if (reading_ != nullptr) g_cancellable_cancel(reading_.get());
  reading_.reset();
  changed_ = false;
  owner_.clear();
}

// ---- When it is read

void ModemManagerClient::whenPropertiesChanged(GDBusConnection * /*connection*/, const gchar * /*sender*/,
                                               const gchar * /*path*/, const gchar * /*interface*/,
                                               const gchar * /*signal*/, GVariant *parameters,
                                               gpointer data) {
  withReferred(data, [parameters](ModemManagerClient &client) {
    if (concernsSubscription(parameters)) client.noteChange();
  });
}

void ModemManagerClient::whenObjectsChanged(GDBusConnection * /*connection*/, const gchar * /*sender*/,
                                            const gchar * /*path*/, const gchar * /*interface*/,
                                            const gchar * /*signal*/, GVariant * /*parameters*/,
                                            gpointer data) {
  withReferred(data, [](ModemManagerClient &client) { client.noteChange(); });
}

void ModemManagerClient::noteChange() {
  // The first one sets the time: changes without end must not put the reading off without end.
  if (std::exchange(changed_, true)) return;
  if (reading_ == nullptr) readLater(intervals_.toGatherChanges);
}

void ModemManagerClient::readLater(unsigned int milliseconds) {
  if (timer_ != nullptr) g_source_destroy(timer_);
  timer_ = g_timeout_source_new(milliseconds);
  g_source_set_callback(
      timer_,
      [](gpointer data) -> gboolean {
        withReferred(data, [](ModemManagerClient &client) {
          client.timer_ = nullptr;
          client.read();
        });
        return G_SOURCE_REMOVE;
      },
      newReference(), &releaseReference);
  g_source_attach(timer_, mainRunLoop_->context());
  g_source_unref(timer_);  // the context keeps it until it is destroyed
}

// ---- The reading

void ModemManagerClient::read() {
  changed_ = false;
  reading_.reset(g_cancellable_new());
  ask(objectManagerPath, objectManagerInterface, "GetManagedObjects", nullptr, "(a{oa{sa{sv}}})",
      [this](GVariant *objects) {
        if (objects == nullptr) {
          finishReading(Subscription(), false);
        } else if (const auto modem = modemOf(objects)) {
          readSim(*modem, {std::nullopt, radioAccessTechnologyOf(*modem)});
        } else {
          finishReading(Subscription(), true);
        }
      });
}

void ModemManagerClient::readSim(const Modem &modem, Subscription subscription) {
  if (modem.simPath.empty()) {
    finishReading(subscription, true);
    return;
  }
  ask(modem.simPath.c_str(), propertiesInterface, "Get",
      g_variant_new("(ss)", simInterface, "OperatorIdentifier"), "(v)",
      [this, subscription = std::move(subscription)](GVariant *answer) mutable {
        if (answer != nullptr) {
          GVariant *value = nullptr;
          g_variant_get(answer, "(v)", &value);
          const GLibPointer<GVariant> operatorIdentifier(value);
          if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING) != FALSE) {
            subscription.homeOperator = homeOperatorOf(g_variant_get_string(value, nullptr));
          }
        }
        finishReading(subscription, answer != nullptr);
      });
}

void ModemManagerClient::finishReading(const Subscription &subscription, bool answered) {
  reading_.reset();
  if (changed_) {
    readLater(intervals_.toGatherChanges);
  } else if (!answered) {
    readLater(intervals_.betweenAttempts);
  }
  observer_(subscription);
}

/// One method call under way, which keeps the client. `then` gets null when no answer of the right type came.
struct ModemManagerClient::Question {
  std::shared_ptr<ModemManagerClient> client;
  GLibPointer<GCancellable> reading;
  std::function<void(GVariant *answer)> then;
};

void ModemManagerClient::ask(const char *path, const char *interface, const char *method,
                             GVariant *parameters, const char *answerType,
                             std::function<void(GVariant *answer)> then) {
  g_dbus_connection_call(connection_.get(), owner_.c_str(), path, interface, method, parameters,
                         G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NO_AUTO_START, intervals_.toAnswer,
                         reading_.get(), &whenAnswered,
                         new Question{strong(*this), retained(reading_.get()), std::move(then)});
}

void ModemManagerClient::whenAnswered(GObject *connection, GAsyncResult *result, gpointer data) {
  const std::unique_ptr<Question> question(static_cast<Question *>(data));
  const GLibPointer<GVariant> answer(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, nullptr));
  // An answer may have come just before its reading was cancelled.
  if (g_cancellable_is_cancelled(question->reading.get()) != FALSE) return;
  runAtBoundary([&] { question->then(answer.get()); });
}

}  // namespace kx
