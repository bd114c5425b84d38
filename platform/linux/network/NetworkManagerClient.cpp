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
constexpr BusProperties properties{serviceName, {"PrimaryConnectionType"}};  // also the interface's name

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
                                           std::shared_ptr<SystemBus> bus)
    : mainRunLoop_(std::move(mainRunLoop)), bus_(std::move(bus)) {}

void NetworkManagerClient::addWatch(const std::shared_ptr<NetworkWatch> &watch) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (std::find(watches_.begin(), watches_.end(), watch) != watches_.end()) return;
    watches_.push_back(watch);
  }
  mainRunLoop_->perform([client = strong(*this)] { client->followWatches(); });
}

void NetworkManagerClient::removeWatch(const std::shared_ptr<NetworkWatch> &watch) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = std::find(watches_.begin(), watches_.end(), watch);
    if (found == watches_.end()) return;
    watches_.erase(found);
  }
  mainRunLoop_->perform([client = strong(*this)] { client->followWatches(); });
}

// ---- On the main thread

void NetworkManagerClient::followWatches() {
  bool isWatched = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isWatched = !watches_.empty();
  }
  if (!isWatched) {
    nameWatch_.reset();
    leave();
  } else if (!observesBus_) {
    observesBus_ = true;
    bus_->observe(weakly(*this, &NetworkManagerClient::useConnection));
  } else if (connection_ != nullptr && !nameWatch_) {
    // It is followed as it comes and goes, and not started.
    nameWatch_.emplace(connection_.get(), serviceName, G_BUS_NAME_WATCHER_FLAGS_NONE, mainRunLoop_->context(),
                       weakly(*this, &NetworkManagerClient::meet),
                       weakly(*this, &NetworkManagerClient::leave));
  }
}

void NetworkManagerClient::useConnection(GDBusConnection *connection) {
  nameWatch_.reset();
  leave();
  connection_ = retained(connection);
  followWatches();
}

void NetworkManagerClient::meet(const char *owner) {
  leave();
  service_.emplace(connection_.get(), owner, mainRunLoop_->context());
  service_->followProperties(properties, path, weakly(*this, &NetworkManagerClient::noteChange));
  service_->call(path, BusPeer::propertiesInterface, "Get",
                 g_variant_new("(ss)", properties.interface, properties.names[0]), "(v)",
                 weakly(*this, [](NetworkManagerClient &client, GVariant *answer, const GError *) {
                   GVariant *type = nullptr;
                   if (answer != nullptr) g_variant_get(answer, "(v)", &type);
                   client.setBearer(bearerOf(GLibPointer<GVariant>(type).get()));
                 }));
}

void NetworkManagerClient::leave() {
  service_.reset();
  setBearer(Bearer::unknown);
}

void NetworkManagerClient::noteChange(GVariant *parameters) {
  const GLibPointer<GVariant> changes(g_variant_get_child_value(parameters, 1));
  // NetworkManager says the new value. If it did not, nothing would be known.
  const GLibPointer<GVariant> type(g_variant_lookup_value(changes.get(), properties.names[0], nullptr));
  setBearer(bearerOf(type.get()));
}

void NetworkManagerClient::setBearer(Bearer bearer) {
  if (bearer_.exchange(bearer) == bearer) return;
  std::vector<std::shared_ptr<NetworkWatch>> watches;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    watches = watches_;
  }
  for (const auto &watch : watches) watch->checkSoon();
}

}  // namespace kx
