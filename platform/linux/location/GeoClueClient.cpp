#include "platform/linux/location/GeoClueClient.h"

#include <cstring>
#include <utility>

#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/location/GeoClueLocation.h"

namespace kx {

namespace {

constexpr const char *geoClueManagerPath = "/org/freedesktop/GeoClue2/Manager";
constexpr const char *geoClueManagerInterface = "org.freedesktop.GeoClue2.Manager";
constexpr const char *clientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char *locationInterface = "org.freedesktop.GeoClue2.Location";
constexpr const char *propertiesInterface = "org.freedesktop.DBus.Properties";

constexpr guint32 exact = 8;           // GClueAccuracyLevel: as good as the device can
constexpr int fetchTimeLimit = 25000;  // milliseconds; a location object answers at once, or is gone

GeoClueClient::Refusal refusalOf(const GError &error) {
  // "Geolocation disabled for UID 1000"; all that the service tells the two apart by is the text.
  return std::strstr(error.message, "disabled") != nullptr ? GeoClueClient::Refusal::disabled
                                                           : GeoClueClient::Refusal::denied;
}

}  // namespace

/// A call that is under way keeps its client.
struct GeoClueClient::Call {
  std::shared_ptr<GeoClueClient> client;
  Reply reply;

  static void finish(GObject *connection, GAsyncResult *result, gpointer data) {
    const std::unique_ptr<Call> call(static_cast<Call *>(data));
    GError *failure = nullptr;
    const GLibPointer<GVariant> value(
        g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &failure));
    const GLibPointer<GError> error(failure);
    runAtBoundary([&] { ((*call->client).*call->reply)(value.get(), error.get()); });
  }
};

GeoClueClient::GeoClueClient(GDBusConnection *connection, std::string owner, GMainContext *mainContext,
                             std::chrono::milliseconds betweenPositions, std::weak_ptr<Listener> listener)
    : connection_(retained(connection)),
      owner_(std::move(owner)),
      betweenPositions_(betweenPositions),
      listener_(std::move(listener)),
      nextFetch_(mainContext) {}

void GeoClueClient::call(const std::string &path, const char *interface, const char *method,
                         GVariant *parameters, const char *replyType, Reply reply, int millisecondsForReply) {
  const std::unique_ptr<GVariantType, void (*)(GVariantType *)> type(g_variant_type_new(replyType),
                                                                     &g_variant_type_free);
  g_dbus_connection_call(connection_.get(), owner_.c_str(), path.c_str(), interface, method, parameters,
                         type.get(), G_DBUS_CALL_FLAGS_NO_AUTO_START, millisecondsForReply, nullptr,
                         reply == nullptr ? nullptr : &Call::finish,
                         reply == nullptr ? nullptr : new Call{strong(*this), reply});
}

// ---- From its creation to its deletion

void GeoClueClient::start(const std::string &desktopId, std::uint32_t distanceThreshold) {
  desktopId_ = desktopId;
  distanceThreshold_ = distanceThreshold;
  call(geoClueManagerPath, geoClueManagerInterface, "CreateClient", nullptr, "(o)",
       &GeoClueClient::whenCreated);
}

void GeoClueClient::whenCreated(GVariant *value, const GError * /*error*/) {
  if (value != nullptr) {
    const char *path = nullptr;
    g_variant_get(value, "(&o)", &path);
    path_ = path;
  }
  if (ended_) {
    deleteAtService();
    return;
  }
  if (path_.empty()) {
    end();
    if (const auto listener = listener_.lock()) listener->clientFailed();
    return;
  }
  subscribe();
  set("DesktopId", g_variant_new_string(desktopId_.c_str()));
  set("DistanceThreshold", g_variant_new_uint32(distanceThreshold_));
  set("RequestedAccuracyLevel", g_variant_new_uint32(exact));
  call(path_, clientInterface, "Start", nullptr, "()", &GeoClueClient::whenStarted);
}

void GeoClueClient::whenStarted(GVariant * /*value*/, const GError *error) {
  if (ended_) return;
  const auto listener = listener_.lock();
  if (listener == nullptr) return;
  if (error == nullptr) {
    started_ = true;
    listener->clientStarted();
    fetchNewest();
    return;
  }
  end();
  if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED) != FALSE) {
    listener->clientRefused(refusalOf(*error));
  } else {
    listener->clientFailed();
  }
}

void GeoClueClient::end() {
  if (std::exchange(ended_, true)) return;
  nextFetch_.cancel();
  if (path_.empty()) return;  // it is deleted when it has been created
  g_dbus_connection_signal_unsubscribe(connection_.get(), locationUpdates_);
  g_dbus_connection_signal_unsubscribe(connection_.get(), propertyChanges_);
  deleteAtService();
}

void GeoClueClient::deleteAtService() {
  if (path_.empty()) return;
  call(geoClueManagerPath, geoClueManagerInterface, "DeleteClient", g_variant_new("(o)", path_.c_str()), "()",
       nullptr);
}

// ---- Properties and signals

void GeoClueClient::set(const char *property, GVariant *value) {
  call(path_, propertiesInterface, "Set", g_variant_new("(ssv)", clientInterface, property, value), "()",
       nullptr);
}

void GeoClueClient::setDistanceThreshold(std::uint32_t distanceThreshold) {
  distanceThreshold_ = distanceThreshold;
  if (!ended_ && !path_.empty()) set("DistanceThreshold", g_variant_new_uint32(distanceThreshold));
}

template <void (GeoClueClient::*handle)(GVariant *parameters)>
guint GeoClueClient::subscribeTo(const char *interface, const char *signal, const char *firstArgument) {
  using Weak = std::weak_ptr<GeoClueClient>;
  return g_dbus_connection_signal_subscribe(
      connection_.get(), owner_.c_str(), interface, signal, path_.c_str(), firstArgument,
      G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *, GVariant *parameters,
         gpointer data) {
        const auto client = static_cast<Weak *>(data)->lock();
        if (client == nullptr || client->ended_) return;
        runAtBoundary([&] { ((*client).*handle)(parameters); });
      },
      new Weak(strong(*this)), [](gpointer data) { delete static_cast<Weak *>(data); });
}

void GeoClueClient::subscribe() {
  locationUpdates_ =
      subscribeTo<&GeoClueClient::locationUpdated>(clientInterface, "LocationUpdated", nullptr);
  propertyChanges_ = subscribeTo<&GeoClueClient::propertiesChanged>(propertiesInterface, "PropertiesChanged",
                                                                    clientInterface);
}

void GeoClueClient::propertiesChanged(GVariant *parameters) {
  if (!started_ || g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sa{sv}as)")) == FALSE) return;
  const GLibPointer<GVariant> changes(g_variant_get_child_value(parameters, 1));
  gboolean active = FALSE;
  if (g_variant_lookup(changes.get(), "Active", "b", &active) == FALSE) return;
  const bool paused = active == FALSE;
  if (paused == std::exchange(paused_, paused)) return;
  const auto listener = listener_.lock();
  if (listener == nullptr) return;
  if (paused) {
    listener->clientPaused();
  } else {
    listener->clientResumed();
  }
}

// ---- Positions

void GeoClueClient::locationUpdated(GVariant *parameters) {
  if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(oo)")) == FALSE) return;
  const char *path = nullptr;
  g_variant_get(parameters, "(o&o)", nullptr, &path);
  if (std::strcmp(path, "/") == 0) return;  // there is none
  newestLocation_ = path;
  fetchNewest();
}

void GeoClueClient::fetchNewest() {
  // A position must not come before the news that the client has started.
  if (!started_ || fetching_ || newestLocation_.empty() || nextFetch_.isScheduled()) return;
  const auto sinceLast = std::chrono::microseconds(g_get_monotonic_time() - fetchedAt_);
  if (fetchedAt_ != 0 && sinceLast < betweenPositions_) {
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(betweenPositions_ - sinceLast);
    nextFetch_.schedule(wait, [this] { fetchNewest(); });
    return;
  }
  fetching_ = true;
  call(std::exchange(newestLocation_, std::string()), propertiesInterface, "GetAll",
       g_variant_new("(s)", locationInterface), "(a{sv})", &GeoClueClient::whenFetched, fetchTimeLimit);
}

void GeoClueClient::whenFetched(GVariant *value, const GError * /*error*/) {
  fetching_ = false;
  fetchedAt_ = g_get_monotonic_time();
  if (ended_) return;
  if (value != nullptr) {
    const GLibPointer<GVariant> properties(g_variant_get_child_value(value, 0));
    const auto location = locationFromProperties(properties.get());
    const auto listener = listener_.lock();
    if (location && listener != nullptr) listener->clientFound(*location);
  }
  if (!ended_) fetchNewest();
}

}  // namespace kx
