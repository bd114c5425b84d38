#include "platform/linux/location/GeoClueClient.h"

#include <cstring>
#include <utility>

#include "platform/linux/bus/Weakly.h"
#include "platform/linux/location/GeoClueLocation.h"

namespace kx {

namespace {

constexpr const char *geoClueManagerPath = "/org/freedesktop/GeoClue2/Manager";
constexpr const char *geoClueManagerInterface = "org.freedesktop.GeoClue2.Manager";
constexpr const char *clientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char *locationInterface = "org.freedesktop.GeoClue2.Location";
constexpr BusProperties clientProperties{clientInterface, {"Active"}};

constexpr guint32 exact = 8;           // GClueAccuracyLevel: as good as the device can
constexpr int fetchTimeLimit = 25000;  // milliseconds; a location object answers at once, or is gone

GeoClueClient::Refusal refusalOf(const GError &error) {
  // "Geolocation disabled for UID 1000"; all that the service tells the two apart by is the text.
  return std::strstr(error.message, "disabled") != nullptr ? GeoClueClient::Refusal::disabled
                                                           : GeoClueClient::Refusal::denied;
}

}  // namespace

GeoClueClient::GeoClueClient(GDBusConnection *connection, const std::string &owner, GMainContext *mainContext,
                             std::chrono::milliseconds betweenPositions, std::weak_ptr<Listener> listener)
    : service_(connection, owner, mainContext),
      betweenPositions_(betweenPositions),
      listener_(std::move(listener)),
      nextFetch_(mainContext) {}

// What has been created has to be deleted, even if nobody needs the client any more.
BusPeer::Reply GeoClueClient::then(void (GeoClueClient::*work)(GVariant *value, const GError *error)) {
  return [client = strong(*this), work](GVariant *value, const GError *error) {
    ((*client).*work)(value, error);
  };
}

// ---- From its creation to its deletion

void GeoClueClient::start(const std::string &desktopId, std::uint32_t distanceThreshold) {
  desktopId_ = desktopId;
  distanceThreshold_ = distanceThreshold;
  service_.call(geoClueManagerPath, geoClueManagerInterface, "CreateClient", nullptr, "(o)",
                then(&GeoClueClient::whenCreated));
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
  service_.subscribe(clientInterface, "LocationUpdated", path_.c_str(), nullptr,
                     weakly(*this, &GeoClueClient::locationUpdated));
  service_.followProperties(clientProperties, path_.c_str(),
                            weakly(*this, &GeoClueClient::propertiesChanged));
  set("DesktopId", g_variant_new_string(desktopId_.c_str()));
  set("DistanceThreshold", g_variant_new_uint32(distanceThreshold_));
  set("RequestedAccuracyLevel", g_variant_new_uint32(exact));
  service_.call(path_, clientInterface, "Start", nullptr, "()", then(&GeoClueClient::whenStarted));
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
  service_.unsubscribe();
  deleteAtService();  // unless it has not been created yet: then it is deleted when it has been
}

void GeoClueClient::deleteAtService() const {
  if (path_.empty()) return;
  service_.call(geoClueManagerPath, geoClueManagerInterface, "DeleteClient",
                g_variant_new("(o)", path_.c_str()), "()", nullptr);
}

// ---- Properties and signals

void GeoClueClient::set(const char *property, GVariant *value) const {
  service_.call(path_, BusPeer::propertiesInterface, "Set",
                g_variant_new("(ssv)", clientInterface, property, value), "()", nullptr);
}

void GeoClueClient::setDistanceThreshold(std::uint32_t distanceThreshold) {
  distanceThreshold_ = distanceThreshold;
  if (!ended_ && !path_.empty()) set("DistanceThreshold", g_variant_new_uint32(distanceThreshold));
}

void GeoClueClient::propertiesChanged(GVariant *parameters) {
  if (!started_) return;
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
  service_.call(std::exchange(newestLocation_, std::string()), BusPeer::propertiesInterface, "GetAll",
                g_variant_new("(s)", locationInterface), "(a{sv})", then(&GeoClueClient::whenFetched),
                fetchTimeLimit);
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
