#include "tests/platform/linux/location/FakeGeoClue.h"

#include <stdexcept>

#include "platform/linux/bus/MainContextScope.h"

namespace kx {

namespace {

// The interface of the properties is among them, so that they too may have the wrong types.
constexpr const char *introspection = R"(<node>
  <interface name="org.freedesktop.GeoClue2.Manager">
    <method name="CreateClient"><arg type="o" direction="out"/></method>
    <method name="DeleteClient"><arg type="o" direction="in"/></method>
  </interface>
  <interface name="org.freedesktop.GeoClue2.Client"><method name="Start"/><method name="Stop"/></interface>
  <interface name="org.freedesktop.DBus.Properties">
    <method name="GetAll"><arg type="s" direction="in"/><arg type="a{sv}" direction="out"/></method>
    <method name="Set"><arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="v" direction="in"/></method>
  </interface>
</node>)";

constexpr const char *managerPath = "/org/freedesktop/GeoClue2/Manager";
constexpr const char *clientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char *propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr std::size_t locationsKept = 2;

}  // namespace

FakeGeoClue::FakeGeoClue(const PrivateBus &bus)
    : bus_(bus), interfaces_(g_dbus_node_info_new_for_xml(introspection, nullptr), &g_dbus_node_info_unref) {
  appear();
}

void FakeGeoClue::appear() {
  connection_ = bus_.connect();
  exportAt(managerPath, "org.freedesktop.GeoClue2.Manager");
  GVariant *const result = g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", "org.freedesktop.GeoClue2", 0U), nullptr, G_DBUS_CALL_FLAGS_NONE,
      -1, nullptr, nullptr);
  if (result == nullptr) throw std::runtime_error("no name for GeoClue");
  g_variant_unref(result);
}

void FakeGeoClue::vanish() {
  if (connection_ == nullptr) return;
  waiting_.clear();
  clients.clear();
  locations_.clear();
  locationObjects_.clear();
  g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
  connection_.reset();
}

guint FakeGeoClue::exportAt(const std::string &path, const char *interface) {
  static const GDBusInterfaceVTable table{&whenCalled, nullptr, nullptr, {}};
  GDBusInterfaceInfo *const info = g_dbus_node_info_lookup_interface(interfaces_.get(), interface);
  const MainContextScope scope(g_main_context_default());
  const guint object = g_dbus_connection_register_object(connection_.get(), path.c_str(), info, &table, this,
                                                         nullptr, nullptr);
  if (object == 0) throw std::runtime_error("cannot export " + path);
  return object;
}

void FakeGeoClue::whenCalled(GDBusConnection *connection, const gchar * /*sender*/, const gchar * /*path*/,
                             const gchar * /*interface*/, const gchar *method, GVariant * /*parameters*/,
                             GDBusMethodInvocation *invocation, gpointer data) {
  auto &fake = *static_cast<FakeGeoClue *>(data);
  if (connection != fake.connection_.get()) {  // it was meant for the one that has vanished
    g_object_unref(invocation);
    return;
  }
  ++fake.calls[method];
  if (fake.silent[method]) {
    fake.waiting_.emplace_back(invocation);
  } else {
    fake.reply(invocation);
    g_object_unref(invocation);
  }
}

void FakeGeoClue::answerWaiting() {
  auto waiting = std::move(waiting_);
  waiting_.clear();
  for (const auto &invocation : waiting) reply(invocation.get());
}

// By messages, since an answer by way of the invocation would have to have the right type.
void FakeGeoClue::reply(GDBusMethodInvocation *invocation) {
  const std::string method = g_dbus_method_invocation_get_method_name(invocation);
  GDBusMessage *const call = g_dbus_method_invocation_get_message(invocation);
  GDBusMessage *message = nullptr;
  const auto error = errors.find(method);
  if (error != errors.end()) {
    message = g_dbus_message_new_method_error_literal(call, error->second.first.c_str(),
                                                      error->second.second.c_str());
  } else {
    GVariant *body = answer(method);
    if (body == nullptr) body = ordinaryAnswer(invocation);
    if (body == nullptr) {
      message = g_dbus_message_new_method_error_literal(call, "org.freedesktop.DBus.Error.UnknownObject", "");
    } else {
      message = g_dbus_message_new_method_reply(call);
      g_dbus_message_set_body(message, body);
    }
  }
  g_dbus_connection_send_message(connection_.get(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                 nullptr);
  g_object_unref(message);
}

GVariant *FakeGeoClue::ordinaryAnswer(GDBusMethodInvocation *invocation) {
  const std::string method = g_dbus_method_invocation_get_method_name(invocation);
  const std::string path = g_dbus_method_invocation_get_object_path(invocation);
  GVariant *const parameters = g_dbus_method_invocation_get_parameters(invocation);
  if (method == "CreateClient") {
    const std::string created = "/org/freedesktop/GeoClue2/Client/" + std::to_string(++lastClient_);
    clients[created] = {};
    exportAt(created, clientInterface);
    exportAt(created, propertiesInterface);
    return g_variant_new("(o)", created.c_str());
  }
  if (method == "DeleteClient") {
    const char *deleted = nullptr;
    g_variant_get(parameters, "(&o)", &deleted);
    clients.erase(deleted);
  } else if (method == "Start") {
    clients.at(path).active = true;
  } else if (method == "Set") {
    setProperty(path, parameters);
  } else if (method == "GetAll") {
    const auto location = locations_.find(path);
    if (location == locations_.end()) return nullptr;
    return g_variant_new("(@a{sv})", location->second.get());
  }
  return g_variant_new("()");
}

void FakeGeoClue::setProperty(const std::string &path, GVariant *parameters) {
  const char *name = nullptr;
  GVariant *value = nullptr;
  g_variant_get(parameters, "(s&sv)", nullptr, &name, &value);
  Client &client = clients.at(path);
  if (std::string(name) == "DesktopId") client.desktopId = g_variant_get_string(value, nullptr);
  if (std::string(name) == "DistanceThreshold") client.distanceThreshold = g_variant_get_uint32(value);
  if (std::string(name) == "RequestedAccuracyLevel") client.accuracyLevel = g_variant_get_uint32(value);
  g_variant_unref(value);
}

const std::string &FakeGeoClue::clientPath() {
  if (clients.size() != 1) throw std::logic_error(std::to_string(clients.size()) + " clients");
  return clients.begin()->first;
}

FakeGeoClue::Client &FakeGeoClue::client() {
  return clients.at(clientPath());
}

GVariant *FakeGeoClue::properties(double latitude, double longitude, double accuracy, double altitude) {
  GVariantDict dictionary;
  g_variant_dict_init(&dictionary, nullptr);
  g_variant_dict_insert(&dictionary, "Latitude", "d", latitude);
  g_variant_dict_insert(&dictionary, "Longitude", "d", longitude);
  g_variant_dict_insert(&dictionary, "Accuracy", "d", accuracy);
  g_variant_dict_insert(&dictionary, "Altitude", "d", altitude);
  g_variant_dict_insert(&dictionary, "Speed", "d", -1.0);
  return g_variant_dict_end(&dictionary);
}

void FakeGeoClue::moveTo(double latitude, double longitude, double accuracy, double altitude) {
  moveTo(properties(latitude, longitude, accuracy, altitude));
}

void FakeGeoClue::moveTo(GVariant *properties) {
  const std::string path = clientPath() + "/Location/" + std::to_string(lastLocation_++);
  locations_[path].reset(g_variant_ref_sink(properties));
  locationObjects_.emplace_back(path, exportAt(path, propertiesInterface));
  sendLocationUpdated(g_variant_new("(oo)", "/", path.c_str()));
  if (locationObjects_.size() <= locationsKept) return;
  g_dbus_connection_unregister_object(connection_.get(), locationObjects_.front().second);
  locations_.erase(locationObjects_.front().first);
  locationObjects_.erase(locationObjects_.begin());
}

void FakeGeoClue::sendLocationUpdated(GVariant *parameters) {
  g_dbus_connection_emit_signal(connection_.get(), nullptr, clientPath().c_str(), clientInterface,
                                "LocationUpdated", parameters, nullptr);
}

void FakeGeoClue::setActive(bool active) {
  client().active = active;
  GVariantDict changed;
  g_variant_dict_init(&changed, nullptr);
  g_variant_dict_insert(&changed, "Active", "b", active ? TRUE : FALSE);
  sendPropertiesChanged(g_variant_new("(s@a{sv}as)", clientInterface, g_variant_dict_end(&changed), nullptr));
}

void FakeGeoClue::sendPropertiesChanged(GVariant *parameters) {
  g_dbus_connection_emit_signal(connection_.get(), nullptr, clientPath().c_str(), propertiesInterface,
                                "PropertiesChanged", parameters, nullptr);
}

}  // namespace kx
