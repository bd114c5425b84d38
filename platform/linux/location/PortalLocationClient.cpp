#include "platform/linux/location/PortalLocationClient.h"

#include <algorithm>
#include <utility>

#include "platform/linux/bus/Weakly.h"
#include "platform/linux/location/GeoClueLocation.h"

namespace kx {

namespace {

constexpr const char *portalInterface = "org.freedesktop.portal.Location";
constexpr const char *sessionInterface = "org.freedesktop.portal.Session";
constexpr const char *requestInterface = "org.freedesktop.portal.Request";

// Names of ours for one session and one request, which the portal makes its paths of. There is one of each at
// a time for a client; a number tells the clients apart.
std::string nextToken() {
  static guint last = 0;  // used on the main thread only
  return "kx" + std::to_string(++last);
}

/// The path that the portal gives a request, so that its answer can be waited for before it is made.
std::string requestPath(const std::string &uniqueName, const std::string &token) {
  std::string sender = uniqueName.substr(1);  // without the colon
  std::replace(sender.begin(), sender.end(), '.', '_');
  return std::string(portal::path) + "/request/" + sender + "/" + token;
}

}  // namespace

PortalLocationClient::PortalLocationClient(GDBusConnection *connection, const std::string &owner,
                                           GMainContext *mainContext,
                                           std::chrono::milliseconds betweenPositions,
                                           std::weak_ptr<Listener> listener)
    : service_(connection, owner, mainContext),
      uniqueName_(g_dbus_connection_get_unique_name(connection)),
      betweenPositions_(betweenPositions),
      listener_(std::move(listener)),
      nextReport_(mainContext) {}

// ---- From its creation to its end

void PortalLocationClient::start(const std::string & /*desktopId*/, std::uint32_t distanceThreshold) {
  constexpr guint32 bestAccuracy = 5;
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&options, "{sv}", "session_handle_token", g_variant_new_string(nextToken().c_str()));
  g_variant_builder_add(&options, "{sv}", "distance-threshold", g_variant_new_uint32(distanceThreshold));
  g_variant_builder_add(&options, "{sv}", "accuracy", g_variant_new_uint32(bestAccuracy));
  // What has been created has to be closed, even if nobody needs it any more: the call keeps the client.
  service_.call(portal::path, portalInterface, "CreateSession", g_variant_new("(a{sv})", &options), "(o)",
                [client = strong(*this)](GVariant *value, const GError *) { client->whenCreated(value); });
}

void PortalLocationClient::whenCreated(GVariant *value) {
  if (value != nullptr) {
    const char *path = nullptr;
    g_variant_get(value, "(&o)", &path);
    session_ = path;
  }
  if (ended_) {
    closeAtService();
    return;
  }
  if (session_.empty()) {
    fail();
    return;
  }
  const std::string token = nextToken();
  request_ = requestPath(uniqueName_, token);
  service_.subscribe(portalInterface, "LocationUpdated", portal::path, nullptr,
                     weakly(*this, &PortalLocationClient::whenUpdated));
  service_.subscribe(sessionInterface, "Closed", session_.c_str(), nullptr,
                     weakly(*this, [](PortalLocationClient &client, GVariant *) { client.fail(); }));
  service_.subscribe(requestInterface, "Response", request_.c_str(), nullptr,
                     weakly(*this, &PortalLocationClient::whenAnswered));
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
  service_.call(portal::path, portalInterface, "Start",
                g_variant_new("(osa{sv})", session_.c_str(), "", &options), "(o)",
                weakly(*this, [](PortalLocationClient &client, GVariant *, const GError *error) {
                  client.whenAsked(error);
                }));
}

void PortalLocationClient::whenAsked(const GError *error) {
  if (ended_ || error == nullptr) return;  // the answer is the request's
  const GLibPointer<gchar> name(g_dbus_error_get_remote_error(error));
  if (g_strcmp0(name.get(), "org.freedesktop.portal.Error.NotAllowed") == 0) {
    refuse(Refusal::disabled);  // by the system's administrator, for every application
  } else {
    fail();
  }
}

void PortalLocationClient::whenAnswered(GVariant *parameters) {
  constexpr guint32 granted = 0;
  constexpr guint32 cancelled = 1;  // by the user, now or once for all
  if (request_.empty() || g_variant_is_of_type(parameters, G_VARIANT_TYPE("(ua{sv})")) == FALSE) return;
  guint32 response = 0;
  g_variant_get(parameters, "(u@a{sv})", &response, nullptr);
  request_.clear();
  if (response == cancelled) {
    refuse(Refusal::denied);
  } else if (response != granted) {
    fail();
  } else {
    started_ = true;
    if (const auto listener = listener_.lock()) listener->clientStarted();
    report();
  }
}

void PortalLocationClient::fail() {
  end();
  if (const auto listener = listener_.lock()) listener->clientFailed();
}

void PortalLocationClient::refuse(Refusal refusal) {
  end();
  if (const auto listener = listener_.lock()) listener->clientRefused(refusal);
}

void PortalLocationClient::setDistanceThreshold(std::uint32_t /*distanceThreshold*/) {}

void PortalLocationClient::end() {
  if (std::exchange(ended_, true)) return;
  nextReport_.cancel();
  service_.unsubscribe();
  closeAtService();  // unless it has not been created yet: then it is closed when it has been
}

void PortalLocationClient::closeAtService() const {
  if (session_.empty()) return;
  if (!request_.empty()) service_.call(request_, requestInterface, "Close", nullptr, "()", nullptr);
  service_.call(session_, sessionInterface, "Close", nullptr, "()", nullptr);
}

// ---- Positions

void PortalLocationClient::whenUpdated(GVariant *parameters) {
  if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(oa{sv})")) == FALSE) return;
  const char *session = nullptr;
  GVariant *value = nullptr;
  g_variant_get(parameters, "(&o@a{sv})", &session, &value);
  const GLibPointer<GVariant> properties(value);
  if (session_ != session) return;
  if (auto location = locationFromProperties(properties.get())) newest_ = location;
  report();
}

void PortalLocationClient::report() {
  // A position must not come before the news that the client has started.
  if (!started_ || ended_ || !newest_ || nextReport_.isScheduled()) return;
  const auto sinceLast = std::chrono::microseconds(g_get_monotonic_time() - reportedAt_);
  if (reportedAt_ != 0 && sinceLast < betweenPositions_) {
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(betweenPositions_ - sinceLast);
    nextReport_.schedule(wait, [this] { report(); });
    return;
  }
  reportedAt_ = g_get_monotonic_time();
  const Location location = *newest_;
  newest_.reset();
  if (const auto listener = listener_.lock()) listener->clientFound(location);
}

}  // namespace kx
