#include "tests/platform/linux/network/StandInNetworkManager.h"

#include <stdexcept>

namespace kx {

namespace {

constexpr const char *name = "org.freedesktop.NetworkManager";
constexpr const char *path = "/org/freedesktop/NetworkManager";
constexpr const char *properties = "org.freedesktop.DBus.Properties";

std::shared_ptr<GVariant> owned(GVariant *floating) {
  if (floating == nullptr) return nullptr;
  return {g_variant_ref_sink(floating), &g_variant_unref};
}

}  // namespace

StandInNetworkManager::StandInNetworkManager(const PrivateBus &bus, const std::string &type)
    : StandInNetworkManager(bus, g_variant_new("(v)", g_variant_new_string(type.c_str()))) {}

StandInNetworkManager::StandInNetworkManager(const PrivateBus &bus, GVariant *answer)
    : connection_(bus.connect()), answer_(owned(answer)) {
  filter_ = g_dbus_connection_add_filter(connection_.get(), &filter, this, nullptr);
  GVariant *const reply = g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", name, 4U /* do not queue */), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  guint32 result = 0;
  if (reply != nullptr) g_variant_get(reply, "(u)", &result);
  if (result != 1) throw std::runtime_error("the name is not to be had");
  g_variant_unref(reply);
}

StandInNetworkManager::~StandInNetworkManager() {
  g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
  g_dbus_connection_remove_filter(connection_.get(), filter_);
}

void StandInNetworkManager::changeType(GVariant *type) {
  GVariantBuilder map;
  g_variant_builder_init(&map, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&map, "{sv}", "PrimaryConnectionType", type);
  g_dbus_connection_emit_signal(connection_.get(), nullptr, path, kx::properties, "PropertiesChanged",
                                g_variant_new("(sa{sv}as)", name, &map, nullptr), nullptr);
  g_dbus_connection_flush_sync(connection_.get(), nullptr, nullptr);
}

GDBusMessage *StandInNetworkManager::filter(GDBusConnection *connection, GDBusMessage *message,
                                            gboolean isIncoming, gpointer data) {
  auto &own = *static_cast<StandInNetworkManager *>(data);
  const bool isQuestion = isIncoming != FALSE &&
                          g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL &&
                          g_strcmp0(g_dbus_message_get_interface(message), kx::properties) == 0;
  if (!isQuestion) return message;
  ++own.asked_;
  if (own.answer_ != nullptr && g_strcmp0(g_dbus_message_get_path(message), path) == 0) {
    GDBusMessage *const reply = g_dbus_message_new_method_reply(message);
    g_dbus_message_set_body(reply, own.answer_.get());
    g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(reply);
  }
  g_object_unref(message);
  return nullptr;
}

}  // namespace kx
