#include "platform/linux/bus/BusPeer.h"

#include <memory>
#include <utility>

#include "platform/linux/bus/MainContextScope.h"
#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

namespace {

constexpr const char *propertiesChanged = "PropertiesChanged";

struct Call {
  BusPeer::Reply reply;
  GLibPointer<GCancellable> cancellable;
};

void whenReplied(GObject *connection, GAsyncResult *result, gpointer data) {
  const std::unique_ptr<Call> call(static_cast<Call *>(data));
  GError *failure = nullptr;
  const GLibPointer<GVariant> value(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &failure));
  const GLibPointer<GError> error(failure);
  // The reply may have come just before the peer went.
  if (g_cancellable_is_cancelled(call->cancellable.get()) != FALSE) return;
  runAtBoundary([&] { call->reply(value.get(), error.get()); });
}

/// Drops the news of properties that are not of interest. On GLib's thread, which reads them anyway.
GDBusMessage *filterProperties(GDBusConnection * /*connection*/, GDBusMessage *message, gboolean isIncoming,
                               gpointer data) {
  const auto &properties = *static_cast<const BusProperties *>(data);
  const bool isNews = isIncoming != FALSE &&
                      g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_SIGNAL &&
                      g_strcmp0(g_dbus_message_get_member(message), propertiesChanged) == 0 &&
                      g_strcmp0(g_dbus_message_get_interface(message), BusPeer::propertiesInterface) == 0 &&
                      g_strcmp0(g_dbus_message_get_arg0(message), properties.interface) == 0;
  if (!isNews || properties.areNamedIn(g_dbus_message_get_body(message))) return message;
  g_object_unref(message);
  return nullptr;
}

}  // namespace

BusPeer::BusPeer(GDBusConnection *connection, std::string owner, GMainContext *mainContext)
    : connection_(retained(connection)),
      owner_(std::move(owner)),
      mainContext_(mainContext),
      calls_(g_cancellable_new()) {}

BusPeer::~BusPeer() {
  unsubscribe();
  g_cancellable_cancel(calls_.get());
}

void BusPeer::call(const std::string &path, const char *interface, const char *method, GVariant *parameters,
                   const char *replyType, Reply reply, int millisecondsForReply) const {
  const MainContextScope scope(mainContext_);
  const bool wantsReply = reply != nullptr;
  g_dbus_connection_call(connection_.get(), owner_.c_str(), path.c_str(), interface, method, parameters,
                         G_VARIANT_TYPE(replyType), G_DBUS_CALL_FLAGS_NO_AUTO_START, millisecondsForReply,
                         calls_.get(), wantsReply ? &whenReplied : nullptr,
                         wantsReply ? new Call{std::move(reply), retained(calls_.get())} : nullptr);
}

void BusPeer::subscribe(const char *interface, const char *signal, const char *path,
                        const char *firstArgument, Signal handler) {
  const MainContextScope scope(mainContext_);
  subscriptions_.push_back(g_dbus_connection_signal_subscribe(
      connection_.get(), owner_.c_str(), interface, signal, path, firstArgument, G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *, GVariant *parameters,
         gpointer data) { runAtBoundary([&] { (*static_cast<Signal *>(data))(parameters); }); },
      new Signal(std::move(handler)), [](gpointer data) { delete static_cast<Signal *>(data); }));
}

void BusPeer::followProperties(const BusProperties &properties, const char *path, Signal handler) {
  filters_.push_back(g_dbus_connection_add_filter(connection_.get(), &filterProperties,
                                                  const_cast<BusProperties *>(&properties), nullptr));
  subscribe(propertiesInterface, propertiesChanged, path, properties.interface, std::move(handler));
}

void BusPeer::unsubscribe() {
  for (const guint subscription : std::exchange(subscriptions_, {})) {
    g_dbus_connection_signal_unsubscribe(connection_.get(), subscription);
  }
  for (const guint filter : std::exchange(filters_, {})) {
    g_dbus_connection_remove_filter(connection_.get(), filter);
  }
}

}  // namespace kx
