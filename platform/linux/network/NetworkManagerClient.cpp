#include "platform/linux/network/NetworkManagerClient.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/linux/bus/Weakly.h"

namespace kx {

namespace {

constexpr const char *serviceName = "org.freedesktop.NetworkManager";
constexpr const char *path = "/org/freedesktop/NetworkManager";
/// Of the interface that has the name of the service.
constexpr BusProperties primaryConnection{serviceName, {"PrimaryConnectionType"}};

/// By NetworkManager's names for the types of connections. Anything else than a text, null too, is unknown.
NetworkManagerClient::Bearer bearerOf(GVariant *value) {
  using Bearer = NetworkManagerClient::Bearer;
  const bool isText = value != nullptr && g_variant_is_of_type(value, G_VARIANT_TYPE_STRING) != FALSE;
  const std::string_view type = isText ? g_variant_get_string(value, nullptr) : "";
  if (type == "gsm" || type == "cdma") return Bearer::cellular;
  // These lie on top of another one; without any text there is no connection.
  constexpr std::string_view unspecific[] = {"", "vpn", "wireguard", "tun", "ip-tunnel"};
  return std::find(std::begin(unspecific), std::end(unspecific), type) != std::end(unspecific)
             ? Bearer::unknown
             : Bearer::other;
}

}  // namespace

NetworkManagerClient::NetworkManagerClient(std::shared_ptr<LinuxRunLoop> mainRunLoop,
                                           std::shared_ptr<MessageBus> bus)
    : WatchedService(std::move(mainRunLoop), std::move(bus), serviceName) {}

void NetworkManagerClient::meet(BusPeer &service) {
  service.followProperties(primaryConnection, path, weakly(*this, &NetworkManagerClient::noteChange));
  service.call(path, BusPeer::propertiesInterface, "Get",
               g_variant_new("(ss)", primaryConnection.interface, primaryConnection.names[0]), "(v)",
               weakly(*this, [](NetworkManagerClient &client, GVariant *answer, const GError *) {
                 GVariant *type = nullptr;
                 if (answer != nullptr) g_variant_get(answer, "(v)", &type);
                 client.setBearer(bearerOf(GLibPointer<GVariant>(type).get()));
               }));
}

void NetworkManagerClient::noteChange(GVariant *parameters) {
  const GLibPointer<GVariant> changes(g_variant_get_child_value(parameters, 1));
  // NetworkManager says the new value. If it did not, nothing would be known.
  const GLibPointer<GVariant> type(
      g_variant_lookup_value(changes.get(), primaryConnection.names[0], nullptr));
  setBearer(bearerOf(type.get()));
}

void NetworkManagerClient::setBearer(Bearer bearer) {
  if (bearer_.exchange(bearer) != bearer) tellWatches();
}

}  // namespace kx
