#include "platform/linux/network/NetworkManagerClient.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

namespace {

constexpr const char *name = "org.freedesktop.NetworkManager";
constexpr const char *path = "/org/freedesktop/NetworkManager";
constexpr const char *primaryConnectionType = "PrimaryConnectionType";

/// By NetworkManager's names for the types of connections.
NetworkManagerClient::Bearer bearerOf(std::string_view type) {
  using Bearer = NetworkManagerClient::Bearer;
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

NetworkManagerClient::~NetworkManagerClient() {
  dropProxy();
}

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
    dropProxy();
  } else if (!observesBus_) {
    observesBus_ = true;
    bus_->observe([weak = weak_from_this()](GDBusConnection *connection) {
      const auto client = std::static_pointer_cast<NetworkManagerClient>(weak.lock());
      if (client != nullptr) client->useConnection(connection);
    });
  } else if (making_ == nullptr) {
    makeProxy();
  }
}

void NetworkManagerClient::useConnection(GDBusConnection *connection) {
  dropProxy();
  connection_ = retained(connection);
  followWatches();
}

/// What is passed to `whenMade`.
struct NetworkManagerClient::Making {
  std::shared_ptr<NetworkManagerClient> client;
  GLibPointer<GCancellable> cancellable;
};

void NetworkManagerClient::makeProxy() {
  if (connection_ == nullptr) return;
  making_.reset(g_cancellable_new());
  // The proxy follows the service as it comes and goes, and starts none.
  g_dbus_proxy_new(connection_.get(),
                   static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START |
                                                G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS |
                                                G_DBUS_PROXY_FLAGS_GET_INVALIDATED_PROPERTIES),
                   nullptr, name, path, name, making_.get(), &whenMade,
                   new Making{strong(*this), retained(making_.get())});
}

void NetworkManagerClient::whenMade(GObject * /*source*/, GAsyncResult *result, gpointer data) {
  const std::unique_ptr<Making> making(static_cast<Making *>(data));
  GLibPointer<GDBusProxy> proxy(g_dbus_proxy_new_finish(result, nullptr));
  NetworkManagerClient &client = *making->client;
  if (proxy == nullptr || client.making_ != making->cancellable) return;  // given up in the meantime
  client.proxy_ = std::move(proxy);
  g_signal_connect_swapped(client.proxy_.get(), "g-properties-changed", G_CALLBACK(&whenChanged), &client);
  runAtBoundary([&client] { client.readBearer(); });
}

void NetworkManagerClient::whenChanged(NetworkManagerClient *client) {
  const auto keptAlive = strong(*client);
  if (keptAlive == nullptr) return;
  runAtBoundary([client] { client->readBearer(); });
}

void NetworkManagerClient::dropProxy() {
  if (making_ != nullptr) g_cancellable_cancel(making_.get());
  making_.reset();
  if (proxy_ != nullptr) g_signal_handlers_disconnect_by_data(proxy_.get(), this);
  proxy_.reset();
  setBearer(Bearer::unknown);
}

void NetworkManagerClient::readBearer() {
  // It is cached as long as the service is on the bus.
  const GLibPointer<GVariant> type(g_dbus_proxy_get_cached_property(proxy_.get(), primaryConnectionType));
  const bool isText = type != nullptr && g_variant_is_of_type(type.get(), G_VARIANT_TYPE_STRING) != FALSE;
  setBearer(isText ? bearerOf(g_variant_get_string(type.get(), nullptr)) : Bearer::unknown);
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
